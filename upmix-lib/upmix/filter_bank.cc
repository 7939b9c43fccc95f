#include "upmix-lib/upmix/filter_bank.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "upmix-lib/base/math_constants.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {

struct FilterBankTables {
  alignas(kSimdAlignmentBytes) float analysis[kTransformFrames];
  alignas(kSimdAlignmentBytes) float synthesis[kSynthesisFrames];  // with the FFT's 1/size
  const RealFft& fft = SharedRealFft<kTransformFrames>();
  FilterBankTables();
};

// The product of the windows is a row of kHopFrames ones smoothed by a Hann kernel of
// unit sum: shifted copies of it sum to 1 whatever the kernel. Its fall is shared out
// between the windows by a power that evens out their side lobes; before its peak the
// analysis window rises slowly and the synthesis window makes up for it.
FilterBankTables::FilterBankTables() {
  constexpr int kKernel = kSynthesisFrames - kHopFrames + 1;
  constexpr int kFall = kSynthesisFrames / 2;
  constexpr int kRise = kTransformFrames - kFall;
  constexpr double kAnalysisShare = 0.6;
  constexpr double kRisePower = 1.5;

  double product[kSynthesisFrames] = {};
  for (int k = 0; k < kKernel; ++k) {
    const double hann = (1.0 - std::cos(2.0 * kPi * (k + 1) / (kKernel + 1))) / (kKernel + 1);
    for (int n = 0; n < kHopFrames; ++n) {
      product[k + n] += hann;
    }
  }
  const double peak = product[kFall];
  double window[kTransformFrames];
  for (int n = 0; n < kRise; ++n) {
    window[n] = std::pow(std::sin(0.5 * kPi * (n + 0.5) / kRise), kRisePower);
  }
  for (int n = 0; n < kFall; ++n) {
    window[kRise + n] = std::pow(product[kFall + n] / peak, kAnalysisShare);
  }
  for (int n = 0; n < kTransformFrames; ++n) {
    analysis[n] = static_cast<float>(window[n]);
  }
  for (int n = 0; n < kSynthesisFrames; ++n) {
    const double share = product[n] / window[kTransformFrames - kSynthesisFrames + n];
    synthesis[n] = static_cast<float>(share / kTransformFrames);
  }
}

const FilterBankTables* SharedFilterBankTables() {
  static const FilterBankTables tables;
  return &tables;
}

Status PrepareFilterBanks() {
  try {
    SharedFilterBankTables();
    return kOk;
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

namespace {

// Of the largest vectors that a build can have.
constexpr int kScratchFloats = 2 * kTransformFrames + 2 * 16;

}  // namespace

void Analysis::Process(const float* in, Spectrum& spectrum) {
  history_.Append(in);
  alignas(kSimdAlignmentBytes) float windowed[kTransformFrames];
  alignas(kSimdAlignmentBytes) float scratch[kScratchFloats];
  const float* window = tables_->analysis;
  const float* last = history_.newest() - kPastFrames;
#pragma omp simd
  for (int n = 0; n < kTransformFrames; ++n) {
    windowed[n] = window[n] * last[n];
  }
  tables_->fft.Forward(windowed, spectrum.re, spectrum.im, scratch);
  std::fill(spectrum.re + kBins, spectrum.re + kPaddedBins, 0.0f);
  std::fill(spectrum.im + kBins, spectrum.im + kPaddedBins, 0.0f);
}

void Synthesis::Process(const Spectrum& spectrum, float* out) {
  alignas(kSimdAlignmentBytes) float signal[kTransformFrames];
  alignas(kSimdAlignmentBytes) float scratch[kScratchFloats];
  tables_->fft.Inverse(spectrum.re, spectrum.im, signal, scratch);

  const float* window = tables_->synthesis;
  const float* tail = signal + kTransformFrames - kSynthesisFrames;
#pragma omp simd
  for (int n = 0; n < kSynthesisFrames; ++n) {
    overlap_[n] += window[n] * tail[n];
  }
  std::copy_n(overlap_, kHopFrames, out);
  std::copy(overlap_ + kHopFrames, overlap_ + kSynthesisFrames, overlap_);
  std::fill(overlap_ + kSynthesisFrames - kHopFrames, overlap_ + kSynthesisFrames, 0.0f);
}

}  // namespace kelda::upmix_lib
