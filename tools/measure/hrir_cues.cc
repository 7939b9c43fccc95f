#include "tools/measure/hrir_cues.h"

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "tools/core/decibels.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/stereo_system.h"

namespace kelda::tools {
namespace {

using Response = std::span<const float>;

double DelayUs(Response left, Response right) {
  constexpr int kStepHz = 20;
  constexpr int kLongestUs = 1000;  // no head is wider
  std::vector<std::complex<double>> cross;
  for (int freq_hz = 100; freq_hz <= 1500; freq_hz += kStepHz) {
    cross.push_back(ResponseAt(right, freq_hz) * std::conj(ResponseAt(left, freq_hz)));
  }
  double peak = 0;
  double peak_us = 0;
  for (int delay_us = -kLongestUs; delay_us <= kLongestUs; ++delay_us) {
    const double angle = 2e-6 * std::numbers::pi * delay_us;
    const std::complex<double> step = std::polar(1.0, angle * kStepHz);
    std::complex<double> turn = std::polar(1.0, angle * 100);
    double sum = 0;
    for (const std::complex<double>& value : cross) {
      sum += (value * turn).real();
      turn *= step;
    }
    // Of equal peaks, which silence has, takes the one nearest to 0.
    if (sum > peak * (1 + 1e-9) ||
        (sum > peak * (1 - 1e-9) && std::abs(delay_us) < std::abs(peak_us))) {
      peak = sum;
      peak_us = delay_us;
    }
  }
  return peak_us;
}

}  // namespace

HrirCues MeasureCues(const upmix_lib::HrirSet& set, int plane) {
  const Response left = set.response(plane, 0);
  const Response right = set.response(plane, 1);
  HrirCues cues{DelayUs(left, right),
                ToDb(std::sqrt(Energy(left))) - ToDb(std::sqrt(Energy(right))), -1000, 0};
  for (const double freq_hz : LogFrequencies(20, 20000, 300)) {
    for (const Response ear : {left, right}) {
      const double gain_db = ToDb(std::abs(ResponseAt(ear, freq_hz)));
      if (gain_db > cues.peak_gain_db) {
        cues.peak_gain_db = gain_db;
        cues.peak_gain_hz = freq_hz;
      }
    }
  }
  return cues;
}

const char* PlaneName(int plane) {
  constexpr const char* kNames[upmix_lib::kPlanes] = {"FL", "FR", "FC", "SL", "SR", "BL", "BR"};
  return kNames[plane];
}

}  // namespace kelda::tools
