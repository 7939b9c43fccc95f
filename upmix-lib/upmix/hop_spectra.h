#ifndef KELDA_UPMIX_LIB_UPMIX_HOP_SPECTRA_H_
#define KELDA_UPMIX_LIB_UPMIX_HOP_SPECTRA_H_

#include <algorithm>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {

// Convolution in partitions of a hop: transforms of two hops, the older one first, multiply with
// those of kHopFrames taps behind which as many zeros stand; the later half of the product's
// inverse is right (overlap-save; Wefers, "Partitioned convolution algorithms for real-time
// auralization", 2015, chapter 5).
inline constexpr int kHopTransform = 2 * kHopFrames;
inline constexpr int kHopBins = kHopTransform / 2 + 1;
inline constexpr int kHopBinGroups = (kHopBins + kLanes - 1) / kLanes;
inline constexpr int kPaddedHopBins = kHopBinGroups * kLanes;
inline constexpr int kHopScratchFloats = 2 * kHopTransform + 2 * 16;

struct alignas(kSimdAlignmentBytes) HopSpectrum {
  float re[kPaddedHopBins];
  float im[kPaddedHopBins];
};

// The transforms of the last kPartitions hops of kInputs signals.
template <int kInputs, int kPartitions>
class HopSpectra {
 public:
  // `last`: the last two hops of each input. Audio.
  void Append(const RealFft& fft, const float* const (&last)[kInputs]) {
    newest_ = newest_ == 0 ? kPartitions - 1 : newest_ - 1;
    alignas(kSimdAlignmentBytes) float scratch[kHopScratchFloats];
    for (int i = 0; i < kInputs; ++i) {
      HopSpectrum& to = spectra_[newest_][i];
      fft.Forward(last[i], to.re, to.im, scratch);
    }
  }

  // Of the hop `age` hops ago, 0 .. kPartitions-1. Audio.
  const HopSpectrum (&operator[](int age) const)[kInputs] {
    const int slot = newest_ + age;
    return spectra_[slot < kPartitions ? slot : slot - kPartitions];
  }

 private:
  HopSpectrum spectra_[kPartitions][kInputs] = {};
  int newest_ = 0;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_HOP_SPECTRA_H_
