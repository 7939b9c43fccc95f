#include "tools/measure/band_power.h"

#include <algorithm>
#include <cmath>

#include "tools/core/decibels.h"

namespace kelda::tools {

CrossSpectra MeasureCrossSpectra(std::span<const float> first, std::span<const float> second) {
  constexpr std::size_t kSize = CrossSpectra::kSize;
  static const SpectrumAnalysis analysis(kSize);
  CrossSpectra mean{Power(analysis.bins()), Power(analysis.bins()), Spectrum(analysis.bins())};
  double count = 0;
  static const std::vector<double> window = HannWindow(kSize);
  const auto windowed = [&](std::span<const float> signal, std::size_t start) {
    std::vector<double> block(kSize);
    for (std::size_t n = 0; n < kSize; ++n) {
      block[n] = window[n] * static_cast<double>(signal[start + n]);
    }
    return analysis.Forward(block);
  };
  const bool same = first.data() == second.data();
  for (std::size_t start = 0; start + kSize <= first.size(); start += kSize / 2, ++count) {
    const Spectrum a = windowed(first, start);
    const Spectrum b = same ? a : windowed(second, start);
    for (std::size_t k = 0; k < a.size(); ++k) {
      mean.first[k] += std::norm(a[k]);
      mean.second[k] += std::norm(b[k]);
      mean.cross[k] += std::conj(a[k]) * b[k];
    }
  }
  // 3/8 is the mean of the window's square; Parseval's theorem gives one more kSize.
  const double scale = 2 / (0.375 * count * double{kSize} * double{kSize});
  for (std::size_t k = 0; k < mean.first.size(); ++k) {
    mean.first[k] *= scale;
    mean.second[k] *= scale;
    mean.cross[k] *= scale;
  }
  return mean;
}

Power MeasurePower(std::span<const float> signal) {
  return MeasureCrossSpectra(signal, signal).first;
}

std::vector<double> ThirdOctaves(double first_hz, double last_hz) {
  std::vector<double> centres;
  for (int k = -18; k <= 13; ++k) {
    const double hz = 1000 * std::exp2(k / 3.0);
    if (hz > first_hz / 1.05 && hz < last_hz * 1.05) {
      centres.push_back(hz);
    }
  }
  return centres;
}

Power ThirdOctavePowers(const Power& power, std::size_t size, const std::vector<double>& centres) {
  const double edge = std::exp2(1.0 / 6);
  Power sums;
  for (const double hz : centres) {
    sums.push_back(BandSum(power, size, hz / edge, hz * edge));
  }
  return sums;
}

double PeakToPeakDb(const Power& power, const Power& reference) {
  double low = 1e9, high = -1e9;
  for (std::size_t i = 0; i < power.size(); ++i) {
    const double db = PowerToDb(power[i] / reference[i]);
    low = std::min(low, db);
    high = std::max(high, db);
  }
  return high - low;
}

}  // namespace kelda::tools
