#include "upmix-lib/binaural/plane_renderer.h"

#include <array>
#include <cstddef>

namespace kelda::upmix_lib {

PlaneRenderer::PlaneRenderer(const HrirSet& hrirs, const RoomParameters& room, float centre_share)
    : direct_(kPlanes, hrirs.taps, hrirs.responses) {
  const RoomResponses responses = MakeRoomResponses(room, hrirs);
  if (responses.taps > 0) {
    room_.emplace(responses, centre_share);
  }
}

void PlaneRenderer::Clear() {
  direct_.Clear();
  if (room_) {
    room_->Clear();
  }
}

void PlaneRenderer::Process(float* left, float* right) {
  direct_.Process(left, right);
  if (!room_) {
    return;
  }
  std::array<const float*, kPlanes> planes;
  for (int plane = 0; plane < kPlanes; ++plane) {
    planes[static_cast<std::size_t>(plane)] = input(plane);
  }
  room_->AddTo(planes, direct_.silent(), left, right);
}

}  // namespace kelda::upmix_lib
