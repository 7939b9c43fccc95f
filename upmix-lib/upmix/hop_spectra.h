#ifndef KELDA_UPMIX_LIB_UPMIX_HOP_SPECTRA_H_
#define KELDA_UPMIX_LIB_UPMIX_HOP_SPECTRA_H_

#include <algorithm>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/simd.h"
#include "upmix-lib/transforms/complex_vec.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {

// Convolution in partitions of a hop: transforms of two hops, the older one first, multiply with
// those of kHopFrames taps behind which as many zeros stand; the later half of the product's
// inverse is right (overlap-save; Wefers, "Partitioned convolution algorithms for real-time
// auralization", 2015, chapter 5).
inline constexpr int kHopTransform = 2 * kHopFrames;
inline constexpr int kHopBins = kHopTransform / 2 + 1;
inline constexpr int kHopBinGroups = kHopTransform / 2 / kLanes;
inline constexpr int kHopScratchFloats = RealFft::ScratchFloats(kHopTransform);

// The first and the last bin are real. They share a place, so that whole vectors hold a spectrum:
// the last one's real part is the first one's imaginary part.
struct alignas(kSimdAlignmentBytes) HopSpectrum {
  float re[kHopTransform / 2];
  float im[kHopTransform / 2];

  // Of kHopTransform frames. Audio, as the following.
  void TransformOf(const RealFft& fft, const float* frames) {
    alignas(kSimdAlignmentBytes) float scratch[kHopScratchFloats];
    alignas(kSimdAlignmentBytes) float parts[2][kHopBins + kLanes];
    fft.Forward(frames, parts[0], parts[1], scratch);
    parts[1][0] = parts[0][kHopBins - 1];
    std::copy_n(parts[0], kHopTransform / 2, re);
    std::copy_n(parts[1], kHopTransform / 2, im);
  }

  // Writes the last kHopFrames of kHopTransform times the frames whose spectrum this is.
  void LastHop(const RealFft& fft, float* frames) const {
    alignas(kSimdAlignmentBytes) float scratch[kHopScratchFloats];
    alignas(kSimdAlignmentBytes) float parts[2][kHopBins + kLanes];
    alignas(kSimdAlignmentBytes) float time[kHopTransform];
    std::copy_n(re, kHopTransform / 2, parts[0]);
    std::copy_n(im, kHopTransform / 2, parts[1]);
    parts[0][kHopBins - 1] = im[0];
    parts[1][kHopBins - 1] = 0.0f;
    fft.Inverse(parts[0], parts[1], time, scratch);
    std::copy_n(time + kHopFrames, kHopFrames, frames);
  }
};

// A sum of products of spectra, for one group of kLanes bins.
class HopProducts {
 public:
  // `h`: kLanes real parts, then as many imaginary parts. Audio, as the following.
  void Add(const Complex<Vec>& x, const float* h) {
    const auto [h_re, h_im] = Complex<Vec>::LoadFrom(h);
    re_re_ += x.re * h_re;
    im_im_ += x.im * h_im;
    re_im_ += x.re * h_im;
    im_re_ += x.im * h_re;
  }

  void StoreTo(HopSpectrum& spectrum, int group) const {
    float *re = spectrum.re + group * kLanes, *im = spectrum.im + group * kLanes;
    Store(re, re_re_ - im_im_);
    Store(im, re_im_ + im_re_);
    if (group == 0) {  // two real bins
      re[0] = re_re_[0];
      im[0] = im_im_[0];
    }
  }

 private:
  // Apart, so that additions wait less for one another.
  Vec re_re_{}, im_im_{}, re_im_{}, im_re_{};
};

// The transforms of the last kPartitions hops of kInputs signals.
template <int kInputs, int kPartitions>
class HopSpectra {
 public:
  // `last`: the last two hops of each input. Audio.
  void Append(const RealFft& fft, const float* const (&last)[kInputs]) {
    newest_ = newest_ == 0 ? kPartitions - 1 : newest_ - 1;
    for (int i = 0; i < kInputs; ++i) {
      spectra_[newest_][i].TransformOf(fft, last[i]);
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
