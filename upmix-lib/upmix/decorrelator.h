// Makes two signals from one. They sound like it, but are uncorrelated with it and with each
// other: sparse random filters ("velvet noise") whose taps are +-1 under an
// exponential decay. They have no feedback, so silence in is silence out one filter
// length later. (B. Alary, A. Politis, V. Valimaki, "Velvet-noise decorrelator", DAFx
// 2017.)
#ifndef KELDA_UPMIX_LIB_UPMIX_DECORRELATOR_H_
#define KELDA_UPMIX_LIB_UPMIX_DECORRELATOR_H_

#include "platform/nonblocking.h"
#include "upmix-lib/upmix/hop_history.h"

namespace kelda::upmix_lib {

inline constexpr int kDecorrelatorFrames = 1024;  // length of the filters
inline constexpr int kDecorrelatorTaps = 30;

// A sparse filter of unit energy: the sum of gain[i] * x[n - delay_frames[i]].
struct SparseFilter {
  int delay_frames[kDecorrelatorTaps];
  float gain[kDecorrelatorTaps];
};

class Decorrelator {
 public:
  // Control.
  Decorrelator();

  // kHopFrames frames in, and out twice; none overlap. Audio.
  void Process(const float* in, float* first, float* second) KELDA_NONBLOCKING;

 private:
  static void Apply(const SparseFilter& filter, const float* newest, float* out);

  HopHistory<kDecorrelatorFrames> history_;
  SparseFilter filters_[2];
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_DECORRELATOR_H_
