#include "tools/kemar_hrirs.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <map>
#include <numbers>
#include <span>
#include <vector>

#include "tools/sofa_file.h"
#include "upmix-lib/data_file.h"
#include "upmix-lib/fft.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::HrirSet;
using upmix_lib::kEars;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;
using upmix_lib::kSampleRateHz;

constexpr int kFftSize = 8192;
constexpr std::size_t kBins = kFftSize / 2 + 1;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

using Spectrum = std::vector<std::complex<double>>;  // kBins
using Power = std::vector<double>;                   // kBins

Spectrum Forward(std::span<const float> taps) {
  const auto& fft = upmix_lib::SharedRealFft<kFftSize>();
  std::vector<float> padded(kFftSize), re(kBins), im(kBins);
  std::vector<float> scratch(static_cast<std::size_t>(fft.scratch_floats()));
  std::copy(taps.begin(), taps.end(), padded.begin());
  fft.Forward(padded.data(), re.data(), im.data(), scratch.data());
  Spectrum spectrum(kBins);
  for (std::size_t k = 0; k < kBins; ++k) spectrum[k] = {re[k], im[k]};
  return spectrum;
}

std::vector<float> Inverse(const Spectrum& spectrum) {
  const auto& fft = upmix_lib::SharedRealFft<kFftSize>();
  std::vector<float> taps(kFftSize), re(kBins), im(kBins);
  std::vector<float> scratch(static_cast<std::size_t>(fft.scratch_floats()));
  for (std::size_t k = 0; k < kBins; ++k) {
    re[k] = static_cast<float>(spectrum[k].real() / kFftSize);
    im[k] = static_cast<float>(spectrum[k].imag() / kFftSize);
  }
  fft.Inverse(re.data(), im.data(), taps.data(), scratch.data());
  return taps;
}

Power PowerOf(std::span<const float> taps) {
  const Spectrum spectrum = Forward(taps);
  Power power(kBins);
  std::transform(spectrum.begin(), spectrum.end(), power.begin(),
                 [](std::complex<double> x) { return std::norm(x); });
  return power;
}

// The minimum-phase spectrum of a power spectrum, by folding its cepstrum (Oppenheim and
// Schafer, "Discrete-Time Signal Processing", chapter 13).
Spectrum MinimumPhase(const Power& power) {
  Spectrum log_magnitude(kBins);
  std::transform(power.begin(), power.end(), log_magnitude.begin(),
                 [](double p) { return 0.5 * std::log(p); });
  std::vector<float> cepstrum = Inverse(log_magnitude);
  for (std::size_t n = 1; n < kFftSize / 2; ++n) cepstrum[n] *= 2.0f;
  std::fill(cepstrum.begin() + kFftSize / 2 + 1, cepstrum.end(), 0.0f);
  Spectrum spectrum = Forward(cepstrum);
  for (auto& x : spectrum) x = std::exp(x);
  return spectrum;
}

// The power mean of both ears over the sphere. The rings of equal elevation hold
// fewer measurements towards the poles: each counts by its area.
Power DiffuseField(const SofaFile& sofa) {
  std::map<float, int> ring_sizes;
  for (const HrirPlane& direction : sofa.directions) ++ring_sizes[direction.elevation_deg];
  Power mean(kBins);
  double weights = 0.0;
  for (std::size_t m = 0; m < sofa.directions.size(); ++m) {
    const float elevation_deg = sofa.directions[m].elevation_deg;
    // The measured pole stands for the cap around it.
    const double area = std::max(0.03, std::cos(elevation_deg * std::numbers::pi / 180.0));
    const double weight = area / ring_sizes[elevation_deg];
    for (std::size_t ear = 0; ear < kEars; ++ear) {
      const Power power = PowerOf(sofa.response(m, ear));
      for (std::size_t k = 0; k < kBins; ++k) mean[k] += weight * power[k];
      weights += weight;
    }
  }
  for (double& p : mean) p /= weights;
  return mean;
}

// The mean over a band around each bin, as wide as a sixth of an octave: details finer
// than that belong to one head only.
Power Smoothed(const Power& power) {
  const double half_band = std::exp2(1.0 / 12.0);
  std::vector<double> sums(kBins + 1);
  for (std::size_t k = 0; k < kBins; ++k) sums[k + 1] = sums[k] + power[k];
  Power smooth(kBins);
  for (std::size_t k = 0; k < kBins; ++k) {
    const auto low = static_cast<std::size_t>(static_cast<double>(k) / half_band);
    const auto high =
        std::min(kBins, static_cast<std::size_t>(static_cast<double>(k) * half_band) + 1);
    smooth[k] = (sums[high] - sums[low]) / static_cast<double>(high - low);
  }
  return smooth;
}

// Equalises `power` by `diffuse`, both at `sample_rate_hz`, and brings it to 48 kHz.
// Outside the range in which loudspeaker and microphone tell anything, the lowest
// frequencies pass the head unchanged and the highest stay as they were.
Power Equalized(const Power& power, const Power& diffuse, double sample_rate_hz) {
  constexpr double kFlatBelow_hz = 150.0, kMeasuredFrom_hz = 300.0, kMeasuredTo_hz = 17000.0;
  Power equalized(kBins);
  for (std::size_t k = 0; k < kBins; ++k) {
    const double freq_hz = static_cast<double>(k) * kSampleRateHz / kFftSize;
    const double at =
        std::clamp(freq_hz, kFlatBelow_hz, kMeasuredTo_hz) * kFftSize / sample_rate_hz;
    const auto bin = static_cast<std::size_t>(at);
    const double between = at - static_cast<double>(bin);
    const auto ratio_at = [&](std::size_t b) { return std::log(power[b] / diffuse[b]); };
    const double log_ratio = (1.0 - between) * ratio_at(bin) + between * ratio_at(bin + 1);
    const double measured = std::clamp(std::log2(std::max(freq_hz, 1.0) / kFlatBelow_hz) /
                                           std::log2(kMeasuredFrom_hz / kFlatBelow_hz),
                                       0.0, 1.0);
    equalized[k] = std::exp(measured * log_ratio);
  }
  return equalized;
}

// How much later than its minimum-phase part a response comes, in seconds: the peak of
// their cross-correlation, over the frequencies at which the ear uses the delay (Nam et
// al., "On the minimum-phase nature of head-related transfer functions", 2008).
double PureDelay_s(std::span<const float> taps, double sample_rate_hz) {
  constexpr double kLow_hz = 200.0, kHigh_hz = 3000.0;
  const Spectrum measured = Forward(taps);
  const Spectrum minimum = MinimumPhase(PowerOf(taps));
  const auto correlation = [&](double delay) {
    double sum = 0.0;
    for (std::size_t k = 0; k < kBins; ++k) {
      const double freq_hz = static_cast<double>(k) * sample_rate_hz / kFftSize;
      if (freq_hz < kLow_hz || freq_hz > kHigh_hz) continue;
      const std::complex<double> cross = measured[k] * std::conj(minimum[k]);
      const double angle = kTwoPi * static_cast<double>(k) * delay / kFftSize;
      sum += std::cos(std::arg(cross) + angle);
    }
    return sum;
  };
  double peak = 0.0, peak_correlation = 0.0;
  for (std::size_t delay = 0; delay < taps.size() / 2; ++delay) {
    if (const double c = correlation(static_cast<double>(delay)); c > peak_correlation) {
      peak_correlation = c;
      peak = static_cast<double>(delay);
    }
  }
  // Band-limited to 3 kHz, the peak is a parabola across a sample on either side.
  const double before = correlation(peak - 1.0), after = correlation(peak + 1.0);
  const double offset = 0.5 * (before - after) / (before - 2.0 * peak_correlation + after);
  return (peak + offset) / sample_rate_hz;
}

// Minimum-phase taps of `power`, `delay_s` late, cut with a fade.
std::vector<float> Taps(const Power& power, double delay_s) {
  constexpr int kFade_taps = 32;
  Spectrum spectrum = MinimumPhase(power);
  for (std::size_t k = 0; k < kBins; ++k) {
    const double freq_hz = static_cast<double>(k) * kSampleRateHz / kFftSize;
    spectrum[k] *= std::polar(std::numbers::sqrt2 / 2.0, -kTwoPi * freq_hz * delay_s);
  }
  std::vector<float> taps = Inverse(spectrum);
  taps.resize(kKemarTaps);
  for (int n = 0; n < kFade_taps; ++n) {
    const double fade = 0.5 - 0.5 * std::cos(std::numbers::pi * (n + 0.5) / kFade_taps);
    taps[static_cast<std::size_t>(kKemarTaps - 1 - n)] *= static_cast<float>(fade);
  }
  return taps;
}

struct Pair {
  std::vector<float> nearer, farther;
};

// Halves, in decibels, what both ears together hear louder or softer than from all
// around, and leaves their difference alone: colour that is not the listener's own is
// heard as colour rather than as direction (Merimaa, "Modification of HRTF filters to
// reduce timbral effects in binaural synthesis", 2009).
void TameColour(Power* nearer, Power* farther) {
  constexpr double kShareRemoved = 0.5;
  for (std::size_t k = 0; k < kBins; ++k) {
    const double both = 0.5 * ((*nearer)[k] + (*farther)[k]);
    const double gain = std::pow(both, -kShareRemoved);
    (*nearer)[k] *= gain;
    (*farther)[k] *= gain;
  }
}

// The HRIRs of a source on the left at `direction`, the mean of both halves of the head.
Pair MakePair(const SofaFile& sofa, const Power& diffuse, const HrirPlane& direction) {
  const std::size_t left = NearestMeasurement(sofa, direction);
  const std::size_t right =
      NearestMeasurement(sofa, {-direction.azimuth_deg, direction.elevation_deg});
  const auto mean_power = [&](std::size_t left_ear, std::size_t right_ear) {
    Power mean = PowerOf(sofa.response(left, left_ear));
    const Power mirrored = PowerOf(sofa.response(right, right_ear));
    for (std::size_t k = 0; k < kBins; ++k) mean[k] = 0.5 * (mean[k] + mirrored[k]);
    return Equalized(Smoothed(mean), diffuse, sofa.sample_rate_hz);
  };
  const auto interaural_s = [&](std::size_t measurement, std::size_t nearer_ear) {
    return PureDelay_s(sofa.response(measurement, 1 - nearer_ear), sofa.sample_rate_hz) -
           PureDelay_s(sofa.response(measurement, nearer_ear), sofa.sample_rate_hz);
  };
  Power nearer = mean_power(0, 1), farther = mean_power(1, 0);
  TameColour(&nearer, &farther);
  const bool ahead = direction.azimuth_deg == 0.0f;
  const double delay_s = ahead ? 0.0 : 0.5 * (interaural_s(left, 0) + interaural_s(right, 1));
  return {Taps(nearer, 0.0), Taps(farther, delay_s)};
}

}  // namespace

HrirSet MakeKemarHrirs(const std::string& sofa_path) {
  const SofaFile sofa = ReadSofaFile(sofa_path);
  const Power diffuse = Smoothed(DiffuseField(sofa));

  HrirSet set;
  set.source =
      "MIT KEMAR, W. G. Gardner and K. D. Martin, MIT Media Lab, 1994; "
      "equalised to the diffuse field";
  set.licence = "free with no restrictions, cite the authors";
  upmix_lib::SetDefaults(std::as_writable_bytes(std::span(&set.room, 1)), upmix_lib::kRoomFields);
  std::copy_n(kPlaneDirections, kPlanes, set.directions.begin());
  set.taps = kKemarTaps;
  for (const HrirPlane& direction : kPlaneDirections) {
    const Pair pair =
        MakePair(sofa, diffuse, {std::abs(direction.azimuth_deg), direction.elevation_deg});
    const bool on_the_left = direction.azimuth_deg >= 0.0f;
    for (const auto* taps :
         {on_the_left ? &pair.nearer : &pair.farther, on_the_left ? &pair.farther : &pair.nearer}) {
      set.responses.insert(set.responses.end(), taps->begin(), taps->end());
    }
  }
  return set;
}

}  // namespace kelda::tools
