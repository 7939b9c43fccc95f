// Powers of signals by frequency band. Signals are 48 kHz mono.
#ifndef KELDA_TOOLS_MEASURE_BAND_POWER_H_
#define KELDA_TOOLS_MEASURE_BAND_POWER_H_

#include <algorithm>
#include <span>
#include <vector>

#include "tools/measure/spectrum.h"

namespace kelda::tools {

// Mean powers of two signals by frequency, and their mean cross power, from Hann windows that
// overlap by half (Welch, "The use of fast Fourier transform for the estimation of power
// spectra", 1967). Scaled so that the bins of a power sum to the signal's mean power, with
// both signs of the frequency counted in every bin.
struct CrossSpectra {
  static constexpr std::size_t kSize = 8192;  // of the transform: bins of 5.9 Hz
  Power first, second;
  Spectrum cross;  // of the first's conjugate and the second
};

// Both signals are of one length, kSize at least.
CrossSpectra MeasureCrossSpectra(std::span<const float> first, std::span<const float> second);
Power MeasurePower(std::span<const float> signal);

// The sum of a spectrum of transforms of `size` points between two frequencies; of the bins
// at the edges the band's share counts. `Value` is double or complex.
template <typename Value>
Value BandSum(const std::vector<Value>& spectrum, std::size_t size, double low_hz, double high_hz) {
  const double bin_hz = 48000.0 / static_cast<double>(size);
  Value sum{};
  const auto first = static_cast<std::size_t>(low_hz / bin_hz);
  for (std::size_t k = first; k < spectrum.size(); ++k) {
    const double begin = (static_cast<double>(k) - 0.5) * bin_hz, end = begin + bin_hz;
    if (begin > high_hz) {
      break;
    }
    const double part = std::min(high_hz, end) - std::max(low_hz, begin);
    if (part > 0) {
      sum += spectrum[k] * (part / bin_hz);
    }
  }
  return sum;
}

// The centres of the third octaves from `first_hz` to `last_hz`: 1 kHz times powers of the
// cube root of two (IEC 61260, base two), those whose nominal names are in this range.
std::vector<double> ThirdOctaves(double first_hz = 125, double last_hz = 10000);

// A spectrum's sums over third octaves.
Power ThirdOctavePowers(const Power& power, std::size_t size, const std::vector<double>& centres);

// The largest less the smallest ratio of two rows of powers, in dB.
double PeakToPeakDb(const Power& power, const Power& reference);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_BAND_POWER_H_
