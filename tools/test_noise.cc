#include "tools/test_noise.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace kelda::tools {
namespace {

Spectrum Pink(uint32_t seed, double rms) {
  std::mt19937 random(seed);
  Spectrum spectrum(TestNoise::kPeriod / 2 + 1);
  double power = 0;
  for (size_t bin = TestNoise::kFirstBin; bin <= TestNoise::kLastBin; ++bin) {
    const double turn = static_cast<double>(random() & 0xFFFFFFU) / (1 << 24);
    spectrum[bin] =
        std::polar(1 / std::sqrt(static_cast<double>(bin)), 2 * std::numbers::pi * turn);
    power += std::norm(spectrum[bin]);
  }
  // A line of magnitude m is a sine of amplitude 2 m / kPeriod.
  const double scale = rms * static_cast<double>(TestNoise::kPeriod) / std::sqrt(2 * power);
  for (std::complex<double>& line : spectrum) {
    line *= scale;
  }
  return spectrum;
}

}  // namespace

TestNoise::TestNoise(Image image, double rms) : left_(Pink(1, rms)), power_(left_.size()) {
  const SpectrumAnalysis analysis(kPeriod);
  const Spectrum right = image == Image::kCentre ? left_
                         : image == Image::kLeft ? Spectrum(left_.size())
                                                 : Pink(2, rms);
  const std::vector<double> left_frames = analysis.Inverse(left_);
  const std::vector<double> right_frames = analysis.Inverse(right);
  for (size_t frame = 0; frame < kPeriod; ++frame) {
    frames_.push_back(static_cast<float>(left_frames[frame]));
    frames_.push_back(static_cast<float>(right_frames[frame]));
  }
  for (size_t bin = 0; bin < power_.size(); ++bin) {
    power_[bin] = (std::norm(left_[bin]) + std::norm(right[bin])) / 2;
  }
}

float TestNoise::peak() const {
  float peak = 0;
  for (const float sample : frames_) {
    peak = std::max(peak, std::abs(sample));
  }
  return peak;
}

}  // namespace kelda::tools
