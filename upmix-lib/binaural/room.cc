#include "upmix-lib/binaural/room.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "upmix-lib/base/math_constants.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

Room::Room(const RoomResponses& responses, float centre_share)
    : convolver_(kRoomSides, responses.taps, responses.responses), wet_(kEars * kBlockFrames) {
  // A constant-power share for either side: 1 and 0 beside an ear, equal ahead and behind.
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const float azimuth = kPlaneDirections[plane].azimuth_deg * static_cast<float>(kPi) / 180.0f;
    const float leftness = 0.5f + 0.5f * std::sin(azimuth);
    side_gains_[0][plane] = std::sqrt(leftness);
    side_gains_[1][plane] = std::sqrt(1.0f - leftness);
  }
  for (auto& gains : side_gains_) {
    gains[kFC] *= centre_share;
  }
}

void Room::AddTo(const std::array<const float*, kPlanes>& planes, float* left, float* right) {
  for (int side = 0; side < kRoomSides; ++side) {
    const auto& gains = side_gains_[static_cast<std::size_t>(side)];
    float* to = convolver_.input(side);
    for (int n = 0; n < kBlockFrames; n += kLanes) {
      Vec sum{};
      for (std::size_t plane = 0; plane < kPlanes; ++plane) {
        sum += gains[plane] * Load<Vec>(planes[plane] + n);
      }
      Store(to + n, sum);
    }
  }
  float* wet_left = wet_.data();
  float* wet_right = wet_.data() + kBlockFrames;
  convolver_.Process(wet_left, wet_right);
#pragma omp simd
  for (int n = 0; n < kBlockFrames; ++n) {
    left[n] += wet_left[n];
    right[n] += wet_right[n];
  }
}

}  // namespace kelda::upmix_lib
