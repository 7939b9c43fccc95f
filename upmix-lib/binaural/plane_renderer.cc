#include "upmix-lib/binaural/plane_renderer.h"

#include <utility>

namespace kelda::upmix_lib {

PlaneRenderer::PlaneRenderer(const HrirSet& hrirs, const RoomParameters& room, float centre_share)
    : PlaneRenderer(SharedPlaneResponses(hrirs, room), centre_share) {}

PlaneRenderer::PlaneRenderer(PlaneResponses responses, float centre_share)
    : direct_(std::move(responses.direct)) {
  if (responses.room) {
    room_.emplace(std::move(responses.room), centre_share);
  }
}

void PlaneRenderer::Clear() {
  direct_.Clear();
  if (room_) {
    room_->Clear();
  }
}

void PlaneRenderer::Process(const float* const* planes, float* left, float* right) {
  direct_.Process(planes, left, right);
  if (room_) {
    room_->AddTo(planes, direct_.silent(), left, right);
  }
}

}  // namespace kelda::upmix_lib
