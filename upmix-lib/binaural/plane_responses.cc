#include "upmix-lib/binaural/plane_responses.h"

#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/room.h"

namespace kelda::upmix_lib {
namespace {

using SharedResponses = std::shared_ptr<const ConvolverResponses>;

// Of a room's response. What is left out is 81 dB below the sound in the default tuning. With a
// tenth of this value the first instance would take a fifth more memory.
constexpr float kNegligible = 5e-4f;

// Knows what somebody has.
class Shelf {
 public:
  PlaneResponses Take(const HrirSet& hrirs, const RoomParameters& room) {
    const std::lock_guard lock(mutex_);
    const SharedResponses direct = TakeDirect(hrirs);
    return {direct, TakeRoom(hrirs, direct, room)};
  }

 private:
  struct Direct {
    std::vector<float> hrirs;
    std::weak_ptr<const ConvolverResponses> responses;
  };
  struct InRoom {
    const ConvolverResponses* direct;  // which a room keeps, so that no others get its address
    RoomParameters room;
    std::weak_ptr<const ConvolverResponses> responses;
  };

  SharedResponses TakeDirect(const HrirSet& hrirs) {
    for (const Direct& old : directs_) {
      if (old.hrirs == hrirs.responses) {
        if (SharedResponses responses = old.responses.lock()) {
          return responses;
        }
      }
    }
    SharedResponses made = Owned(
        std::make_unique<const ConvolverResponses>(kPlanes, hrirs.taps, hrirs.responses), nullptr);
    directs_.push_front({hrirs.responses, made});
    return made;
  }

  SharedResponses TakeRoom(const HrirSet& hrirs, const SharedResponses& direct,
                           const RoomParameters& room) {
    for (const InRoom& old : rooms_) {
      if (old.direct == direct.get() && old.room == room) {
        if (SharedResponses responses = old.responses.lock()) {
          return responses;
        }
      }
    }
    const RoomResponses made = MakeRoomResponses(room, hrirs);
    if (made.taps == 0) {
      return nullptr;
    }
    SharedResponses responses = Owned(std::make_unique<const ConvolverResponses>(
                                          kRoomSides, made.taps, made.responses, kNegligible),
                                      direct);
    rooms_.push_front({direct.get(), room, responses});
    return responses;
  }

  // Whose last owner clears the shelf of it.
  SharedResponses Owned(std::unique_ptr<const ConvolverResponses> made, SharedResponses kept) {
    return {made.release(), [this, kept = std::move(kept)](const ConvolverResponses* responses) {
              delete responses;
              Clear();
            }};
  }

  void Clear() {
    const auto unowned = [](const auto& old) { return old.responses.expired(); };
    const std::lock_guard lock(mutex_);  // again, where memory runs out within Take
    directs_.remove_if(unowned);
    rooms_.remove_if(unowned);
  }

  std::recursive_mutex mutex_;
  std::list<Direct> directs_;
  std::list<InRoom> rooms_;
};

}  // namespace

PlaneResponses SharedPlaneResponses(const HrirSet& hrirs, const RoomParameters& room) {
  static Shelf& shelf = *new Shelf;  // outlives every instance
  return shelf.Take(hrirs, room);
}

}  // namespace kelda::upmix_lib
