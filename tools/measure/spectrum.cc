#include "tools/measure/spectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kelda::tools {

SpectrumAnalysis::SpectrumAnalysis(std::size_t size)
    : size_(size), forward_(size, false), inverse_(size, true) {}

Spectrum SpectrumAnalysis::Forward(std::span<const double> signal) const {
  Spectrum padded(size_), spectrum(size_);
  std::copy(signal.begin(), signal.end(), padded.begin());
  forward_.transform(padded.data(), spectrum.data());
  spectrum.resize(bins());
  return spectrum;
}

Power SpectrumAnalysis::PowerOf(std::span<const float> signal) const {
  const Spectrum spectrum = Forward(std::vector<double>(signal.begin(), signal.end()));
  Power power(bins());
  std::transform(spectrum.begin(), spectrum.end(), power.begin(),
                 [](std::complex<double> x) { return std::norm(x); });
  return power;
}

std::vector<double> SpectrumAnalysis::Inverse(const Spectrum& spectrum) const {
  Spectrum whole = spectrum, result(size_);
  whole.resize(size_);
  for (std::size_t k = 1; k < size_ / 2; ++k) {
    whole[size_ - k] = std::conj(whole[k]);
  }
  inverse_.transform(whole.data(), result.data());
  std::vector<double> signal(size_);
  std::transform(result.begin(), result.end(), signal.begin(),
                 [this](std::complex<double> x) { return x.real() / static_cast<double>(size_); });
  return signal;
}

Spectrum SpectrumAnalysis::MinimumPhase(const Power& power) const {
  Spectrum log_magnitude(bins());
  std::transform(power.begin(), power.end(), log_magnitude.begin(),
                 [](double p) { return 0.5 * std::log(p); });
  std::vector<double> cepstrum = Inverse(log_magnitude);
  for (std::size_t n = 1; n < size_ / 2; ++n) {
    cepstrum[n] *= 2.0;
  }
  std::fill(cepstrum.begin() + static_cast<std::ptrdiff_t>(size_ / 2 + 1), cepstrum.end(), 0.0);
  Spectrum spectrum = Forward(cepstrum);
  for (auto& x : spectrum) {
    x = std::exp(x);
  }
  return spectrum;
}

std::vector<double> HannWindow(std::size_t size) {
  std::vector<double> window(size);
  for (std::size_t n = 0; n < size; ++n) {
    const double turn = (static_cast<double>(n) + 0.5) / static_cast<double>(size);
    window[n] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * turn);
  }
  return window;
}

double FadeOut(std::size_t n, std::size_t count) {
  const std::size_t fade = count / 8;
  const std::size_t left = count - n;  // 1 at the last
  const double phase = (static_cast<double>(left) - 0.5) / static_cast<double>(fade);
  return left > fade ? 1 : 0.5 - 0.5 * std::cos(std::numbers::pi * phase);
}

}  // namespace kelda::tools
