#ifndef KELDA_UPMIX_LIB_BINAURAL_PLANE_RENDERER_H_
#define KELDA_UPMIX_LIB_BINAURAL_PLANE_RENDERER_H_

#include <optional>

#include "platform/nonblocking.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/binaural/plane_responses.h"
#include "upmix-lib/binaural/room.h"
#include "upmix-lib/binaural/room_parameters.h"
#include "upmix-lib/filters/convolver.h"

namespace kelda::upmix_lib {

// Seven planes to two ears: one set of HRIRs and a room, with the signal history that belongs
// to them.
//
//   planes --+--> HRIR pairs --+--> left, right
//            \--> room --------/
//
// Latency is 0 frames.
class PlaneRenderer {
 public:
  // `room` may be another than the set's own; `centre_share` is how much of the centre plane
  // reaches it, as an amplitude. Control. Throws std::bad_alloc.
  PlaneRenderer(const HrirSet& hrirs, const RoomParameters& room, float centre_share);

  // Clears the signal history. Control.
  void Clear();

  // Moves `centre_share` to another value within the next block. Audio.
  void MoveCentreShare(float centre_share) KELDA_NONBLOCKING {
    if (room_) {
      room_->MoveCentreShare(centre_share);
    }
  }

  // Whether more silence would come out as silence and leave everything as it is. Audio.
  bool at_rest() const { return direct_.at_rest() && (!room_ || room_->at_rest()); }

  // Renders kBlockFrames samples of each plane, all finite, to either ear; `left` and `right` are
  // none of the planes. Audio.
  void Process(const float* const* planes, float* left, float* right) KELDA_NONBLOCKING;

 private:
  PlaneRenderer(PlaneResponses responses, float centre_share);

  Convolver direct_;
  std::optional<Room> room_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_PLANE_RENDERER_H_
