#ifndef KELDA_UPMIX_LIB_UPMIX_HOP_HISTORY_H_
#define KELDA_UPMIX_LIB_UPMIX_HOP_HISTORY_H_

#include <algorithm>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

// The last kPastFrames frames of a signal and the current hop, in one piece. Hops are
// appended until the memory is full; then what is still needed moves to its start.
template <int kPastFrames>
class HopHistory {
 public:
  // Takes the next kHopFrames frames. Audio.
  void Append(const float* hop) {
    if (newest_ + kHopFrames == kFrames) {
      std::copy(frames_ + kFrames - kPastFrames, frames_ + kFrames, frames_);
      newest_ = kPastFrames - kHopFrames;
    }
    newest_ += kHopFrames;
    std::copy_n(hop, kHopFrames, frames_ + newest_);
  }

  // The current hop; kPastFrames frames lie before it.
  const float* newest() const { return frames_ + newest_; }

 private:
  static constexpr int kFrames = kPastFrames + 16 * kHopFrames;
  static_assert(kPastFrames % kHopFrames == 0);

  alignas(kSimdAlignmentBytes) float frames_[kFrames] = {};
  int newest_ = kPastFrames;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_HOP_HISTORY_H_
