#include "tools/measure/test_signal.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <random>
#include <stdexcept>

namespace kelda::tools {
namespace {

constexpr std::size_t kFirstBin = TestSignal::kFirstBin;
constexpr std::size_t kLastBin = TestSignal::kLastBin;

// Phases of the lines from kFirstBin to kLastBin, in turns.
std::vector<double> RandomPhases(uint32_t seed) {
  std::mt19937 random(seed);
  std::vector<double> turns(kLastBin + 1 - kFirstBin);
  std::generate(turns.begin(), turns.end(),
                [&] { return static_cast<double>(random() & 0xFFFFFFu) / (1 << 24); });
  return turns;
}

// From one line to the next, the phase falls by the share of the period that has passed when the
// sweep reaches the line.
std::vector<double> SweepPhases() {
  std::vector<double> turns(kLastBin + 1 - kFirstBin);
  const double whole = std::log(static_cast<double>(kLastBin) / kFirstBin);
  double turn = 0;
  for (std::size_t i = 0; i < turns.size(); ++i) {
    turns[i] = turn;
    turn -= std::log(static_cast<double>(kFirstBin + i) / kFirstBin) / whole;
    turn -= std::floor(turn);
  }
  return turns;
}

Spectrum Pink(const std::vector<double>& turns, double rms) {
  Spectrum spectrum(TestSignal::kPeriod / 2 + 1);
  double power = 0;
  for (std::size_t i = 0; i < turns.size(); ++i) {
    std::complex<double>& line = spectrum[kFirstBin + i];
    line = std::polar(1 / std::sqrt(static_cast<double>(kFirstBin + i)),
                      2 * std::numbers::pi * turns[i]);
    power += std::norm(line);
  }
  // A line of magnitude m is a sine of amplitude 2 m / kPeriod.
  const double scale = rms * static_cast<double>(TestSignal::kPeriod) / std::sqrt(2 * power);
  for (std::complex<double>& line : spectrum) {
    line *= scale;
  }
  return spectrum;
}

}  // namespace

TestSignal::TestSignal(Image image, Waveform waveform, double rms)
    : left_(Pink(waveform == Waveform::kSweep ? SweepPhases() : RandomPhases(1), rms)),
      power_(left_.size()) {
  if (image == Image::kDiffuse && waveform == Waveform::kSweep) {
    throw std::invalid_argument("a sweep cannot be diffuse");
  }
  const SpectrumAnalysis analysis(kPeriod);
  const Spectrum right = image == Image::kCentre ? left_
                         : image == Image::kLeft ? Spectrum(left_.size())
                                                 : Pink(RandomPhases(2), rms);
  const std::vector<double> left_frames = analysis.Inverse(left_);
  const std::vector<double> right_frames = analysis.Inverse(right);
  for (std::size_t frame = 0; frame < kPeriod; ++frame) {
    frames_.push_back(static_cast<float>(left_frames[frame]));
    frames_.push_back(static_cast<float>(right_frames[frame]));
  }
  for (std::size_t bin = 0; bin < power_.size(); ++bin) {
    power_[bin] = (std::norm(left_[bin]) + std::norm(right[bin])) / 2;
  }
}

float TestSignal::peak() const {
  float peak = 0;
  for (const float sample : frames_) {
    peak = std::max(peak, std::abs(sample));
  }
  return peak;
}

std::vector<float> HalfCentredNoise(double rms) {
  std::vector<float> noise = TestSignal(Image::kDiffuse, Waveform::kNoise, rms).frames();
  const SpectrumAnalysis analysis(TestSignal::kPeriod);
  const std::vector<double> centre = analysis.Inverse(Pink(RandomPhases(3), rms));
  for (std::size_t i = 0; i < noise.size(); ++i) {
    noise[i] += static_cast<float>(centre[i / 2]);
  }
  return noise;
}

}  // namespace kelda::tools
