#include "upmix-lib/binaural/room.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "platform/math_constants.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

Room::Room(std::shared_ptr<const ConvolverResponses> responses, float centre_share)
    : centre_share_(centre_share),
      next_centre_share_(centre_share),
      convolver_(std::move(responses)),
      centre_(kRoomCentreDelayFrames + kBlockFrames) {
  // A constant-power share for either side: 1 and 0 beside an ear, equal ahead and behind.
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const float azimuth = kPlaneDirections[plane].azimuth_deg * static_cast<float>(kPi) / 180.0f;
    const float leftness = 0.5f + 0.5f * std::sin(azimuth);
    side_gains_[0][plane] = std::sqrt(leftness);
    side_gains_[1][plane] = std::sqrt(1.0f - leftness);
  }
}

bool Room::at_rest() const {
  return convolver_.at_rest() && IsSilent(centre_.data(), kRoomCentreDelayFrames);
}

void Room::AddTo(const float* const* planes, bool silent, float* left, float* right) {
  const float share = centre_share_;
  const float slope = (next_centre_share_ - centre_share_) / kBlockFrames;
  centre_share_ = next_centre_share_;
  if (silent && at_rest()) {
    return;
  }
  std::copy_n(planes[kFC], kBlockFrames, centre_.data() + kRoomCentreDelayFrames);
  const float* sources[kPlanes];
  std::copy_n(planes, kPlanes, sources);
  sources[kFC] = centre_.data();
  alignas(kSimdAlignmentBytes) float sides[kRoomSides][kBlockFrames];
  for (int side = 0; side < kRoomSides; ++side) {
    auto gains = side_gains_[static_cast<std::size_t>(side)];
    const float centre_gain = gains[kFC];
    for (int n = 0; n < kBlockFrames; n += kLanes) {
      gains[kFC] = centre_gain * (share + slope * static_cast<float>(n));  // in steps of a vector
      Vec sum{};
      for (std::size_t plane = 0; plane < kPlanes; ++plane) {
        sum += gains[plane] * Load<Vec>(sources[plane] + n);
      }
      Store(sides[side] + n, sum);
    }
  }
  std::copy_n(centre_.data() + kBlockFrames, kRoomCentreDelayFrames, centre_.data());
  alignas(kSimdAlignmentBytes) float wet_left[kBlockFrames], wet_right[kBlockFrames];
  const float* const inputs[kRoomSides] = {sides[0], sides[1]};
  convolver_.Process(inputs, wet_left, wet_right);
#pragma omp simd
  for (int n = 0; n < kBlockFrames; ++n) {
    left[n] += wet_left[n];
    right[n] += wet_right[n];
  }
}

}  // namespace kelda::upmix_lib
