#ifndef KELDA_UPMIX_LIB_LEVEL_K_WEIGHTING_H_
#define KELDA_UPMIX_LIB_LEVEL_K_WEIGHTING_H_

#include <cstddef>

#include "platform/nonblocking.h"
#include "upmix-lib/filters/double_vec.h"

namespace kelda::upmix_lib {

// The K-weighting of Recommendation ITU-R BS.1770-4 on two channels at 48 kHz: a high
// shelf for the head, then a high pass.
//
// Both stages of both channels share a vector. The high pass works one frame later than the
// shelf that feeds it, which does not change the loudness.
class KWeighting {
 public:
  // Control.
  KWeighting();

  // +12 dBFS. Louder samples count as this, so that a single damaged one does not outweigh
  // the seconds around it.
  static constexpr double kLoudestSample = 4.0;

  // Weights `count` interleaved stereo frames, all finite, and returns the sum of the
  // squares of the weighted samples of both channels. Audio.
  double Energy(const float* frames, std::size_t count) KELDA_NONBLOCKING;

  // Whether silence would have no energy, and leave everything as it is. Audio.
  bool at_rest() const { return IsZero(s1_) && IsZero(s2_) && IsZero(y_); }

 private:
  FourBiquads sections_;
  DoubleVec4 s1_{}, s2_{}, y_{};  // lanes: shelf L, R, high pass L, R
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_LEVEL_K_WEIGHTING_H_
