#include "tools/measure/plane_figures.h"

#include <cmath>
#include <cstddef>
#include <numeric>

#include "tools/measure/spectrum.h"

namespace kelda::tools {
namespace {

void Add(const Channels& from, float gain, Channels* to) {
  for (std::size_t c = 0; c < to->size(); ++c) {
    for (std::size_t n = 0; n < from[c].size(); ++n) {
      (*to)[c][n] += gain * from[c][n];
    }
  }
}

}  // namespace

Channels StemByPlane(const Upmix& upmix, const Channels& mix, const Channels& stem) {
  Channels turned = mix;
  Add(stem, -2.0f, &turned);
  Channels by_plane = upmix(mix);
  Add(upmix(turned), -1, &by_plane);
  for (std::vector<float>& plane : by_plane) {
    for (float& sample : plane) {
      sample *= 0.5f;
    }
  }
  return by_plane;
}

std::array<double, 7> Shares(const Channels& by_plane) {
  std::array<double, 7> shares{};
  for (std::size_t p = 0; p < shares.size(); ++p) {
    shares[p] = Energy(by_plane[p]);
  }
  const double sum = std::accumulate(shares.begin(), shares.end(), 0.0);
  for (double& share : shares) {
    share /= sum;
  }
  return shares;
}

double LogKurtosis(std::span<const float> signal) {
  constexpr std::size_t kSize = 512;
  static const SpectrumAnalysis analysis(kSize);
  static const std::vector<double> window = HannWindow(kSize);
  std::vector<double> second(analysis.bins()), fourth(analysis.bins());
  double count = 0;
  for (std::size_t start = kSoundRate; start + kSize <= signal.size();
       start += kSize / 2, ++count) {
    std::vector<double> block(kSize);
    for (std::size_t n = 0; n < kSize; ++n) {
      block[n] = window[n] * double{signal[start + n]};
    }
    const Spectrum spectrum = analysis.Forward(block);
    for (std::size_t k = 0; k < spectrum.size(); ++k) {
      second[k] += std::norm(spectrum[k]);
      fourth[k] += std::norm(spectrum[k]) * std::norm(spectrum[k]);
    }
  }
  double sum = 0;
  for (std::size_t k = 4; k < 107; ++k) {
    sum += std::log(fourth[k] * count / (second[k] * second[k]));
  }
  return sum / 103;
}

}  // namespace kelda::tools
