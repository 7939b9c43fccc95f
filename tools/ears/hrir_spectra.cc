#include "tools/ears/hrir_spectra.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdlib>
#include <numbers>

#include "upmix-lib/base/audio_format.h"

namespace kelda::tools {
namespace {

using upmix_lib::kSampleRateHz;

constexpr double kTwoPi = 2.0 * std::numbers::pi;

}  // namespace

Power Smoothed(const Power& power) {
  const double half_band = std::exp2(1.0 / 12.0);
  std::vector<double> sums(power.size() + 1);
  for (std::size_t k = 0; k < power.size(); ++k) {
    sums[k + 1] = sums[k] + power[k];
  }
  Power smooth(power.size());
  for (std::size_t k = 0; k < power.size(); ++k) {
    const auto low = static_cast<std::size_t>(static_cast<double>(k) / half_band);
    const auto high =
        std::min(power.size(), static_cast<std::size_t>(static_cast<double>(k) * half_band) + 1);
    smooth[k] = (sums[high] - sums[low]) / static_cast<double>(high - low);
  }
  return smooth;
}

double LagS(const Spectrum& left, const Spectrum& right, double bin_hz) {
  constexpr double kLowHz = 200.0, kHighHz = 1500.0, kStepS = 10e-6;
  std::vector<std::complex<double>> phases;
  const auto first = static_cast<std::size_t>(kLowHz / bin_hz) + 1;
  for (std::size_t k = first; static_cast<double>(k) * bin_hz <= kHighHz; ++k) {
    phases.push_back(std::polar(1.0, std::arg(right[k] * std::conj(left[k]))));
  }
  const auto correlation = [&](double lag_s) {
    double sum = 0.0;
    for (std::size_t i = 0; i < phases.size(); ++i) {
      const double freq_hz = static_cast<double>(first + i) * bin_hz;
      sum += (phases[i] * std::polar(1.0, kTwoPi * freq_hz * lag_s)).real();
    }
    return sum;
  };
  double peak_s = 0.0, peak = correlation(0.0);
  constexpr int kSteps = static_cast<int>(kMaxLagS / kStepS);
  for (int step = -kSteps; step <= kSteps; ++step) {
    if (const double c = correlation(step * kStepS); c > peak) {
      peak = c;
      peak_s = step * kStepS;
    }
  }
  // Nothing above 1.5 kHz takes part, so that the peak is a parabola from one step before it to one
  // step after it.
  const double before = correlation(peak_s - kStepS), after = correlation(peak_s + kStepS);
  const double bend = before - 2.0 * peak + after;
  return peak_s + (bend < 0 ? kStepS * std::clamp(0.5 * (before - after) / bend, -1.0, 1.0) : 0.0);
}

Power Equalized(const Power& power, const Power& diffuse, const SpectrumAnalysis& measured,
                double sample_rate_hz, const SpectrumAnalysis& tapped) {
  constexpr double kFlatBelowHz = 150.0, kMeasuredFromHz = 300.0, kMeasuredToHz = 17000.0;
  const double highest_hz = std::min(kMeasuredToHz, 0.42 * sample_rate_hz);
  Power equalized(tapped.bins());
  for (std::size_t k = 0; k < equalized.size(); ++k) {
    const double freq_hz =
        static_cast<double>(k) * kSampleRateHz / static_cast<double>(tapped.size());
    const double at = std::clamp(freq_hz, kFlatBelowHz, highest_hz) *
                      static_cast<double>(measured.size()) / sample_rate_hz;
    const auto bin = static_cast<std::size_t>(at);
    const double between = at - static_cast<double>(bin);
    const auto ratio_at = [&](std::size_t b) {
      constexpr double kLeast = 1e-12;  // a response may have a zero
      return std::log(std::max(power[b] / std::max(diffuse[b], 1e-30), kLeast));
    };
    const double log_ratio = (1.0 - between) * ratio_at(bin) + between * ratio_at(bin + 1);
    const double trusted = std::clamp(std::log2(std::max(freq_hz, 1.0) / kFlatBelowHz) /
                                          std::log2(kMeasuredFromHz / kFlatBelowHz),
                                      0.0, 1.0);
    equalized[k] = std::exp(trusted * log_ratio);
  }
  return equalized;
}

void TameColour(double share, Power* one_ear, Power* other_ear) {
  for (std::size_t k = 0; k < one_ear->size(); ++k) {
    const double both = 0.5 * ((*one_ear)[k] + (*other_ear)[k]);
    const double gain = std::pow(both, -share);
    (*one_ear)[k] *= gain;
    (*other_ear)[k] *= gain;
  }
}

Spectrum SoftMinimumPhase(const SpectrumAnalysis& tapped, const Power& power) {
  constexpr double kFromHz = 20000.0, kToHz = 0.5 * kSampleRateHz, kDepthDb = 60.0;
  Power softened = power;
  for (std::size_t k = 0; k < softened.size(); ++k) {
    const double freq_hz =
        static_cast<double>(k) * kSampleRateHz / static_cast<double>(tapped.size());
    const double part = std::clamp((freq_hz - kFromHz) / (kToHz - kFromHz), 0.0, 1.0);
    const double fall_db = kDepthDb * (0.5 - 0.5 * std::cos(std::numbers::pi * part));
    softened[k] *= std::pow(10.0, -0.1 * fall_db);
  }
  return tapped.MinimumPhase(softened);
}

CutTaps MakeTaps(const SpectrumAnalysis& tapped, const Spectrum& spectrum, double delay_s,
                 std::size_t count) {
  Spectrum late = spectrum;
  for (std::size_t k = 0; k < late.size(); ++k) {
    const double freq_hz =
        static_cast<double>(k) * kSampleRateHz / static_cast<double>(tapped.size());
    late[k] *= std::polar(std::numbers::sqrt2 / 2.0, -kTwoPi * freq_hz * delay_s);
  }
  const std::vector<double> whole = tapped.Inverse(late);
  CutTaps cut{std::vector<float>(count), 0};
  double energy = 0, kept = 0;
  for (std::size_t n = 0; n < whole.size(); ++n) {
    energy += whole[n] * whole[n];
    if (n >= count) {
      continue;
    }
    const double gain = FadeOut(n, count);
    cut.taps[n] = static_cast<float>(gain * whole[n]);
    kept += std::pow(gain * whole[n], 2);
  }
  cut.lost = std::max(0.0, 1 - kept / energy);
  return cut;
}

}  // namespace kelda::tools
