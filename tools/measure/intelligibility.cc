#include "tools/measure/intelligibility.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tools/core/decibels.h"
#include "tools/measure/band_power.h"

namespace kelda::tools {
namespace {

using Frames = std::vector<std::vector<double>>;

constexpr std::size_t kFrame = 256, kHop = 128, kTransform = 512, kBands = 15, kSegment = 30;

// From 48 to 10 kHz, by 24/5, by a windowed sinc with a corner at 4.9 kHz.
std::vector<double> AtTenKilohertz(std::span<const float> signal) {
  constexpr double kCutoff = 2 * 4900.0 / 48000;
  constexpr std::size_t kReach = 480, kPhases = 5;
  static const Frames filters = [] {
    Frames rows(kPhases, std::vector<double>(2 * kReach));
    for (std::size_t phase = 0; phase < kPhases; ++phase) {
      for (std::size_t i = 0; i < 2 * kReach; ++i) {
        // The frame that is 24/5 times a multiple of five, plus `phase`, lies between two.
        const double t =
            static_cast<double>(i) + 1 - kReach - std::fmod(4.8 * static_cast<double>(phase), 1.0);
        const double x = std::numbers::pi * kCutoff * t;
        const double sinc = std::abs(x) < 1e-9 ? 1 : std::sin(x) / x;
        const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * t / (kReach + 1));
        rows[phase][i] = kCutoff * sinc * window;
      }
    }
    return rows;
  }();
  std::vector<double> out(signal.size() * 5 / 24);
  for (std::size_t m = 0; m < out.size(); ++m) {
    const std::size_t centre = m * 24 / 5;
    for (std::size_t i = 0; i < 2 * kReach; ++i) {
      const std::size_t n = centre + i + 1 - kReach;  // wraps below 0, and is refused
      if (n < signal.size()) {
        out[m] += filters[m % kPhases][i] * double{signal[n]};
      }
    }
  }
  return out;
}

// `from` in the window of a frame, from `start` on.
std::vector<double> FrameAt(const std::vector<double>& from, std::size_t start) {
  std::vector<double> frame(kFrame);
  for (std::size_t n = 0; n < kFrame; ++n) {
    const double phase = 2 * std::numbers::pi * static_cast<double>(n + 1) / (kFrame + 1);
    frame[n] = from[start + n] * (0.5 - 0.5 * std::cos(phase));
  }
  return frame;
}

// Windowed frames; those where `speech` is 40 dB below its loudest are left out.
Frames Spoken(const std::vector<double>& signal, const std::vector<double>& speech) {
  std::vector<double> energies;
  Frames frames;
  for (std::size_t start = 0; start + kFrame <= speech.size(); start += kHop) {
    double energy = 0;
    for (const double sample : FrameAt(speech, start)) {
      energy += sample * sample;
    }
    energies.push_back(energy);
    frames.push_back(FrameAt(signal, start));
  }
  const double least = *std::max_element(energies.begin(), energies.end()) * 1e-4;
  Frames kept;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (energies[i] > least) {
      kept.push_back(std::move(frames[i]));
    }
  }
  return kept;
}

// Magnitudes by band, a row each, of frames that are joined again as they overlapped.
Frames BandMagnitudes(const Frames& frames) {
  static const SpectrumAnalysis analysis(kTransform);
  std::vector<double> joined((frames.size() + 1) * kHop);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    for (std::size_t n = 0; n < kFrame; ++n) {
      joined[i * kHop + n] += frames[i][n];
    }
  }
  Frames rows(kBands);
  for (std::size_t i = 0; i + 1 < frames.size(); ++i) {
    const Spectrum spectrum = analysis.Forward(FrameAt(joined, i * kHop));
    for (std::size_t band = 0; band < kBands; ++band) {
      const double centre = 150 * std::exp2(static_cast<double>(band) / 3);
      const auto bin = [&](double octaves) {
        return static_cast<std::size_t>(
            std::lround(centre * std::exp2(octaves) * kTransform / 10000));
      };
      double sum = 0;
      for (std::size_t k = bin(-1.0 / 6); k < bin(1.0 / 6); ++k) {
        sum += std::norm(spectrum[k]);
      }
      rows[band].push_back(std::sqrt(sum));
    }
  }
  return rows;
}

void Normalise(std::vector<double>& values) {
  double mean = 0, square = 0;
  for (const double value : values) {
    mean += value / static_cast<double>(values.size());
  }
  for (double& value : values) {
    value -= mean;
    square += value * value;
  }
  for (double& value : values) {
    value /= std::sqrt(square) + 1e-12;
  }
}

// The columns of a segment, rows and then columns at zero mean and unit norm.
Frames Segment(const Frames& rows, std::size_t first) {
  Frames columns(kSegment, std::vector<double>(kBands));
  for (std::size_t band = 0; band < kBands; ++band) {
    const auto from = rows[band].begin() + static_cast<std::ptrdiff_t>(first);
    std::vector<double> row(from, from + kSegment);
    Normalise(row);
    for (std::size_t i = 0; i < kSegment; ++i) {
      columns[i][band] = row[i];
    }
  }
  for (std::vector<double>& column : columns) {
    Normalise(column);
  }
  return columns;
}

}  // namespace

double SiSdrDb(std::span<const float> heard, std::span<const float> wanted) {
  double cross = 0, square = 0, power = 0;
  for (std::size_t n = 0; n < heard.size(); ++n) {
    const double h = heard[n], w = wanted[n];
    cross += h * w;
    square += w * w;
    power += h * h;
  }
  const double target = cross * cross / square;
  return PowerToDb(target / std::max(power - target, 1e-30));
}

double Estoi(std::span<const float> heard, std::span<const float> speech) {
  const std::vector<double> clean = AtTenKilohertz(speech);
  const Frames wanted = BandMagnitudes(Spoken(clean, clean));
  const Frames got = BandMagnitudes(Spoken(AtTenKilohertz(heard), clean));
  double sum = 0;
  std::size_t count = 0;
  for (std::size_t first = 0; first + kSegment <= wanted[0].size(); ++first, ++count) {
    const Frames a = Segment(wanted, first), b = Segment(got, first);
    for (std::size_t i = 0; i < kSegment; ++i) {
      for (std::size_t band = 0; band < kBands; ++band) {
        sum += a[i][band] * b[i][band];
      }
    }
  }
  return sum / static_cast<double>(count * kSegment);
}

}  // namespace kelda::tools
