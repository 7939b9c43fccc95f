#include "tools/measure/ear_figures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>

#include "tools/core/decibels.h"
#include "tools/measure/band_power.h"
#include "tools/measure/colouration.h"

namespace kelda::tools {
namespace {

double Coherence(const CrossSpectra& spectra, double low_hz, double high_hz) {
  constexpr std::size_t kSize = CrossSpectra::kSize;
  const double powers = BandSum(spectra.first, kSize, low_hz, high_hz) *
                        BandSum(spectra.second, kSize, low_hz, high_hz);
  return BandSum(spectra.cross, kSize, low_hz, high_hz).real() / std::sqrt(std::max(powers, 1e-40));
}

// The power of both channels together, by frequency.
Power SumPower(const Channels& signal) {
  Power sum = MeasurePower(signal[0]);
  const Power other = MeasurePower(signal[1]);
  for (std::size_t k = 0; k < sum.size(); ++k) {
    sum[k] += other[k];
  }
  return sum;
}

Power ThirdOctaveGains(const HeardNoise& heard, const std::vector<double>& centres) {
  const Power out = ThirdOctavePowers(heard.ears_power, CrossSpectra::kSize, centres);
  const Power in = ThirdOctavePowers(heard.in_power, CrossSpectra::kSize, centres);
  Power gains;
  for (std::size_t i = 0; i < out.size(); ++i) {
    gains.push_back(out[i] / in[i]);
  }
  return gains;
}

}  // namespace

LineSpectrum MeasureLines(const StereoSystem& system, std::span<const PannedTone> tones) {
  constexpr std::size_t kSize = 131072, kSettled = 8 * kSoundRate;
  Channels in(2, std::vector<float>(kSettled + kSize));
  for (const PannedTone& tone : tones) {
    for (std::size_t n = 0; n < in[0].size(); ++n) {
      const double sine =
          std::sin(2 * std::numbers::pi * tone.freq_hz * static_cast<double>(n) / kSoundRate);
      in[0][n] += static_cast<float>(tone.left * sine);
      in[1][n] += static_cast<float>(tone.right * sine);
    }
  }
  const SpectrumAnalysis analysis(kSize);
  constexpr double kNearHz = 30, kBinHz = double{kSoundRate} / kSize;
  const double half_band = std::exp2(1.0 / 24);
  LineSpectrum worst;
  for (const std::vector<float>& ear : system(in)) {
    std::vector<double> block(kSize);
    for (std::size_t n = 0; n < kSize; ++n) {
      const double phase = 2 * std::numbers::pi * (static_cast<double>(n) + 0.5) / kSize;
      const double window = 0.35875 - 0.48829 * std::cos(phase) + 0.14128 * std::cos(2 * phase) -
                            0.01168 * std::cos(3 * phase);
      block[n] = window * double{ear[kSettled + n]};
    }
    const Spectrum spectrum = analysis.Forward(block);
    // The highest of some bins, near the tones and elsewhere.
    const auto highest = [&](double low_hz, double high_hz) {
      std::array<double, 2> sizes{};
      const auto last = std::min(static_cast<std::size_t>(high_hz / kBinHz), spectrum.size() - 1);
      for (auto k = static_cast<std::size_t>(std::ceil(low_hz / kBinHz)); k <= last; ++k) {
        const double hz = static_cast<double>(k) * kBinHz;
        const bool near = std::any_of(tones.begin(), tones.end(), [&](const PannedTone& tone) {
          return std::abs(hz - tone.freq_hz) <= kNearHz;
        });
        sizes[near ? 0 : 1] = std::max(sizes[near ? 0 : 1], std::abs(spectrum[k]));
      }
      return sizes;
    };
    const auto [tone, line] = highest(0, kSoundRate / 2.0);
    const double scale = 1 / std::max(tone, 1e-12);
    if (ToDb(line * scale) < worst.worst_db) {
      continue;
    }
    worst = {ToDb(line * scale), {}, {}, {}};
    for (double hz = 50; hz < 20000; hz *= half_band * half_band) {
      const auto [near, rest] = highest(hz / half_band, hz * half_band);
      worst.freq_hz.push_back(hz);
      worst.tones_db.push_back(ToDb(near * scale));
      worst.rest_db.push_back(ToDb(rest * scale));
    }
  }
  return worst;
}

const std::vector<std::vector<PannedTone>>& TonePairs() {
  constexpr double kLevel = 0.1;
  static const std::vector<std::vector<PannedTone>> pairs = {
      {{1000, kLevel, kLevel}, {1400, kLevel, 0}},
      {{5000, kLevel, kLevel}, {5900, kLevel, 0}},
      {{300, kLevel, kLevel}, {420, kLevel, 0}}};
  return pairs;
}

const std::vector<PannedTone>& OrganChord() {
  static const std::vector<PannedTone> chord = [] {
    constexpr double kLevel = 0.06;
    std::vector<PannedTone> tones;
    // C4, left; E4, centre; G4, right.
    const PannedTone notes[] = {{261.63, 1, 0}, {329.63, 0.7071, 0.7071}, {392.0, 0, 1}};
    for (const PannedTone& note : notes) {
      for (int harmonic = 1; harmonic <= 6; ++harmonic) {
        const double level = kLevel / harmonic;
        tones.push_back({harmonic * note.freq_hz, level * note.left, level * note.right});
      }
    }
    return tones;
  }();
  return chord;
}

HeardNoise Hear(const StereoSystem& system, Image image, std::size_t frames) {
  constexpr std::size_t kSettled = 8 * kSoundRate;
  const SpectrumAnalysis analysis(frames);
  std::mt19937 random(1);
  std::normal_distribution<double> normal;
  const auto noise = [&] {
    Spectrum spectrum(analysis.bins());
    const auto bin = [frames](double hz) {
      return static_cast<std::size_t>(hz * static_cast<double>(frames) / kSoundRate);
    };
    for (std::size_t k = bin(20); k < bin(20000); ++k) {
      spectrum[k] =
          std::complex(normal(random), normal(random)) / std::sqrt(static_cast<double>(k));
    }
    const std::vector<double> signal = analysis.Inverse(spectrum);
    double power = 0;
    for (const double sample : signal) {
      power += sample * sample / static_cast<double>(frames);
    }
    std::vector<float> scaled;
    scaled.reserve(signal.size());
    for (const double sample : signal) {
      scaled.push_back(static_cast<float>(0.05 * sample / std::sqrt(power)));
    }
    return scaled;
  };
  Channels in(2, noise());
  if (image == Image::kLeft) {
    std::fill(in[1].begin(), in[1].end(), 0.0f);
  }
  if (image == Image::kDiffuse) {
    in[1] = noise();
  }
  const Channels ears = system(in);
  HeardNoise heard{
      Part(in, kSettled, frames - kSettled), Part(ears, kSettled, frames - kSettled), {}, {}};
  heard.in_power = SumPower(heard.in);
  heard.ears_power = SumPower(heard.ears);
  return heard;
}

std::vector<double> GainsDb(const HeardNoise& heard, const std::vector<double>& centres) {
  std::vector<double> gains_db;
  for (const double gain : ThirdOctaveGains(heard, centres)) {
    gains_db.push_back(PowerToDb(gain));
  }
  return gains_db;
}

double ColourDb(const HeardNoise& heard) {
  const Power gains = ThirdOctaveGains(heard, ThirdOctaves());
  return PeakToPeakDb(gains, Power(gains.size(), 1));
}

double TrebleDb(const HeardNoise& heard) {
  const Power gains = ThirdOctaveGains(heard, ThirdOctaves(500, 8000));
  double middle_db = 0;
  for (std::size_t i = 0; i < 7; ++i) {
    middle_db += PowerToDb(gains[i]) / 7;  // 500 Hz to 2 kHz
  }
  return PowerToDb(gains.back()) - middle_db;
}

double BassDb(const HeardNoise& heard) {
  const auto gain_db = [&](double low_hz, double high_hz) {
    return PowerToDb(BandSum(heard.ears_power, CrossSpectra::kSize, low_hz, high_hz) /
                     BandSum(heard.in_power, CrossSpectra::kSize, low_hz, high_hz));
  };
  return gain_db(40, 100) - gain_db(40, 16000);
}

double ColourationSone(const HeardNoise& heard) {
  std::vector<double> freq_hz, out_db, in_db;
  for (double hz = 21; hz < 19500; hz *= std::exp2(1.0 / 12)) {
    const double low = hz * std::exp2(-1.0 / 24), high = hz * std::exp2(1.0 / 24);
    freq_hz.push_back(hz);
    out_db.push_back(
        PowerToDb(BandSum(heard.ears_power, CrossSpectra::kSize, low, high) / (high - low)));
    in_db.push_back(
        PowerToDb(BandSum(heard.in_power, CrossSpectra::kSize, low, high) / (high - low)));
  }
  return Colouration(freq_hz, {out_db}, {in_db});
}

double Coherence(const Channels& ears, double low_hz, double high_hz) {
  return Coherence(MeasureCrossSpectra(ears[0], ears[1]), low_hz, high_hz);
}

CoherenceCurve MeasureCoherence(const Channels& ears) {
  const CrossSpectra spectra = MeasureCrossSpectra(ears[0], ears[1]);
  const double edge = std::exp2(1.0 / 12);
  CoherenceCurve curve;
  for (double hz = 250 * edge; hz * edge < 4010; hz *= edge * edge) {
    curve.freq_hz.push_back(hz);
    curve.heard.push_back(Coherence(spectra, hz / edge, hz * edge));
    curve.diffuse.push_back(hz < 400 ? 0.48 : hz < 600 ? 0.06 : hz < 900 ? -0.20 : 0);
  }
  return curve;
}

double CoherenceCurve::Off() const {
  double sum = 0;
  for (std::size_t i = 0; i < heard.size(); ++i) {
    sum += (heard[i] - diffuse[i]) * (heard[i] - diffuse[i]);
  }
  return std::sqrt(sum / static_cast<double>(heard.size()));
}

Externalisation MeasureExternalisation(const Channels& ears) {
  constexpr std::size_t kSize = 1024;  // Hann windows, as long as 20 ms of full weight
  static const SpectrumAnalysis analysis(kSize);
  static const std::vector<double> window = HannWindow(kSize);
  const std::vector<double> centres = ThirdOctaves(500, 4000);
  const CrossSpectra mean = MeasureCrossSpectra(ears[0], ears[1]);
  const double edge = std::exp2(1.0 / 6);
  Externalisation cues{};
  for (const double hz : centres) {
    const auto sum = [&](const auto& s) {
      return BandSum(s, CrossSpectra::kSize, hz / edge, hz * edge);
    };
    cues.coherence += std::abs(sum(mean.cross)) /
                      std::sqrt(std::max(sum(mean.first) * sum(mean.second), 1e-40)) /
                      static_cast<double>(centres.size());
  }
  std::vector<double> first(centres.size()), second(centres.size());
  double count = 0;
  for (std::size_t start = 0; start + kSize <= ears[0].size(); start += kSize / 2, ++count) {
    std::array<Power, 2> powers;
    for (std::size_t ear = 0; ear < 2; ++ear) {
      std::vector<float> block(kSize);
      for (std::size_t n = 0; n < kSize; ++n) {
        block[n] = static_cast<float>(window[n]) * ears[ear][start + n];
      }
      powers[ear] = ThirdOctavePowers(analysis.PowerOf(block), kSize, centres);
    }
    for (std::size_t i = 0; i < centres.size(); ++i) {
      const double level_db = PowerToDb(powers[0][i]) - PowerToDb(powers[1][i]);
      first[i] += level_db;
      second[i] += level_db * level_db;
    }
  }
  for (std::size_t i = 0; i < centres.size(); ++i) {
    const double mean_db = first[i] / count;
    cues.level_deviation_db += std::sqrt(std::max(0.0, second[i] / count - mean_db * mean_db)) /
                               static_cast<double>(centres.size());
  }
  return cues;
}

double WidthDb(const Channels& ears) {
  std::vector<float> middle = ears[0], side = ears[0];
  for (std::size_t n = 0; n < middle.size(); ++n) {
    middle[n] += ears[1][n];
    side[n] -= ears[1][n];
  }
  const auto power = [](const std::vector<float>& signal) {
    return BandSum(MeasurePower(signal), CrossSpectra::kSize, 300, 8000);
  };
  return PowerToDb(power(side) / std::max(power(middle), 1e-20));
}

Channels EarResponses(const StereoSystem& system, Image image) {
  constexpr std::size_t kPeriod = TestSignal::kPeriod, kPlayed = 12;
  const TestSignal sweep(image, Waveform::kSweep, 0.05);
  Channels in(2);
  for (std::size_t n = 0; n < kPlayed * kPeriod; ++n) {
    for (std::size_t c = 0; c < 2; ++c) {
      in[c].push_back(sweep.frames()[(2 * n + c) % (2 * kPeriod)]);
    }
  }
  const SpectrumAnalysis analysis(kPeriod);
  Channels responses;
  for (const std::vector<float>& ear : system(in)) {
    Spectrum ratio = analysis.Forward(
        std::vector<double>(ear.end() - static_cast<std::ptrdiff_t>(kPeriod), ear.end()));
    for (std::size_t k = 0; k < ratio.size(); ++k) {
      const bool sounds = k >= TestSignal::kFirstBin && k <= TestSignal::kLastBin;
      ratio[k] = sounds ? ratio[k] / sweep.left()[k] : 0;
    }
    const std::vector<double> taps = analysis.Inverse(ratio);
    responses.emplace_back(taps.begin(), taps.end());
  }
  return responses;
}

}  // namespace kelda::tools
