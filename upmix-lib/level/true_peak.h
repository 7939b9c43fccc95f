#ifndef KELDA_UPMIX_LIB_LEVEL_TRUE_PEAK_H_
#define KELDA_UPMIX_LIB_LEVEL_TRUE_PEAK_H_

#include <array>

#include "platform/nonblocking.h"

namespace kelda::upmix_lib {

// True peak of a stereo signal by 4x oversampling, as in ITU-R BS.1770-4, annex 2.
//
// The interpolator is a sinc under a Kaiser window, 16 taps to each of the three points
// between two frames, true to 0.12 dB up to 20 kHz.
class TruePeak {
 public:
  static constexpr int kChunkFrames = 8;
  static constexpr int kReachFrames = 8;  // of the interpolator, to either side

  // Control.
  TruePeak();

  // The largest magnitude of either channel at the frames 0 .. kChunkFrames - 1 and between
  // each of them and the next. `frames` is interleaved and readable from frame
  // 1 - kReachFrames up to frame kChunkFrames + kReachFrames - 1. Audio.
  float OfChunk(const float* frames) const KELDA_NONBLOCKING;

 private:
  // For the frames at i and 1 - i: a quarter point is the even part times their sum, plus or
  // minus the odd part times their difference.
  struct Taps {
    float half, quarter_even, quarter_odd;
  };
  std::array<Taps, kReachFrames> taps_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_TRUE_PEAK_H_
