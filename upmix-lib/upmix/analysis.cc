#include "upmix-lib/upmix/analysis.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

// Frames that the windows fall over. Shorter sees changes sooner, longer parts tones better.
constexpr int kLongFall = 128;
constexpr int kShortFall = 80;

// Fills `size` values and returns the sum of their squares.
double MakeWindow(int size, int fall, float* window) {
  constexpr double kRisePower = 1.5;
  double energy = 0.0;
  for (int n = 0; n < size; ++n) {
    const int rise = size - fall;
    const double value = n < rise ? std::pow(std::sin(0.5 * kPi * (n + 0.5) / rise), kRisePower)
                                  : 0.5 + 0.5 * std::cos(kPi * (n - rise + 0.5) / fall);
    window[n] = static_cast<float>(value);
    energy += value * value;
  }
  return energy;
}

}  // namespace

struct AnalysisTables {
  alignas(kSimdAlignmentBytes) float long_window[kLongFrames];
  alignas(kSimdAlignmentBytes) float short_window[kShortFrames];
  const RealFft& long_fft = SharedRealFft<kLongFrames>();
  const RealFft& short_fft = SharedRealFft<kShortFrames>();

  AnalysisTables() {
    const double long_energy = MakeWindow(kLongFrames, kLongFall, long_window);
    const double short_energy = MakeWindow(kShortFrames, kShortFall, short_window);
    const double scale = std::sqrt(short_energy / (kLongPerShort * long_energy));
    for (float& value : long_window) {
      value *= static_cast<float>(scale);
    }
  }
};

const AnalysisTables* SharedAnalysisTables() {
  static const AnalysisTables tables;
  return &tables;
}

namespace {

template <int kFrames, int kBins, int kPadded>
void TransformWindow(const RealFft& fft, const float* window, const float* last,
                     SpectrumOf<kPadded>& spectrum) {
  alignas(kSimdAlignmentBytes) float windowed[kFrames];
  alignas(kSimdAlignmentBytes) float scratch[RealFft::ScratchFloats(kFrames)];
#pragma omp simd
  for (int n = 0; n < kFrames; ++n) {
    windowed[n] = window[n] * last[n];
  }
  fft.Forward(windowed, spectrum.re, spectrum.im, scratch);
  std::fill(spectrum.re + kBins, spectrum.re + kPadded, 0.0f);
  std::fill(spectrum.im + kBins, spectrum.im + kPadded, 0.0f);
}

}  // namespace

void Analysis::Transform(LongSpectrum& spectrum) const {
  TransformWindow<kLongFrames, kLongBins>(tables_->long_fft, tables_->long_window,
                                          Last(kLongFrames), spectrum);
}

void Analysis::Transform(ShortSpectrum& spectrum) const {
  TransformWindow<kShortFrames, kShortBins>(tables_->short_fft, tables_->short_window,
                                            Last(kShortFrames), spectrum);
}

}  // namespace kelda::upmix_lib
