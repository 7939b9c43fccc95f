#ifndef KELDA_CHANGEOVER_CROSSFADE_H_
#define KELDA_CHANGEOVER_CROSSFADE_H_

#include <array>
#include <cstddef>

#include "platform/nonblocking.h"

namespace kelda::changeover {

// From one sound to another by a raised cosine: amplitudes that add to 1, because both sounds come
// from the same input and are in step. Equal power would swell by 3 dB where they are alike.
class Crossfade {
 public:
  static constexpr std::size_t kFrames = 2400;  // 50 ms

  Crossfade();

  // Of the new sound at frame `position`; 1 beyond the end. Any thread.
  float Gain(std::size_t position) const KELDA_NONBLOCKING {
    return position < kFrames ? gains_[position] : 1.0f;
  }

  // Mixes `frames` interleaved stereo frames, of which the first is frame `position` of the fade;
  // what lies beyond its end is all `to`. Any thread.
  void Mix(const float* from, const float* to, std::size_t position, std::size_t frames,
           float* mixed) const KELDA_NONBLOCKING;

 private:
  std::array<float, kFrames> gains_;  // of the new sound
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_CROSSFADE_H_
