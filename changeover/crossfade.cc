#include "changeover/crossfade.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"

namespace kelda::changeover {

Crossfade::Crossfade() {
  for (std::size_t frame = 0; frame < kFrames; ++frame) {
    const double part = static_cast<double>(frame) / kFrames;
    gains_[frame] = static_cast<float>(0.5 - 0.5 * std::cos(kPi * part));
  }
}

void Crossfade::Mix(const float* from, const float* to, std::size_t position, std::size_t frames,
                    float* mixed) const {
  const std::size_t fading = std::min(frames, kFrames - std::min(position, kFrames));
  for (std::size_t frame = 0; frame < fading; ++frame) {
    const float gain = gains_[position + frame];
    for (const std::size_t i : {2 * frame, 2 * frame + 1}) {
      mixed[i] = from[i] + gain * (to[i] - from[i]);
    }
  }
  std::copy(to + 2 * fading, to + 2 * frames, mixed + 2 * fading);
}

}  // namespace kelda::changeover
