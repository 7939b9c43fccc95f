#include "tools/measure/room_figures.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <span>

#include "tools/core/decibels.h"
#include "tools/measure/band_power.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kDirectFrames = 144;  // 3 ms

// From the begin of the direct sound on.
std::span<const float> FromBegin(std::span<const float> ear) {
  float peak = 0;
  for (const float sample : ear) {
    peak = std::max(peak, std::abs(sample));
  }
  std::size_t begin = 0;
  while (begin + 1 < ear.size() && std::abs(ear[begin]) < 0.1f * peak) {
    ++begin;
  }
  return ear.subspan(begin);
}

std::span<const float> Direct(std::span<const float> ear) {
  return ear.first(std::min(ear.size(), kDirectFrames));
}

std::span<const float> LouderEar(const Channels& response) {
  const std::span<const float> left = FromBegin(response[0]), right = FromBegin(response[1]);
  return Energy(Direct(left)) >= Energy(Direct(right)) ? left : right;
}

Power BothEars(const SpectrumAnalysis& analysis, const Channels& response) {
  Power sum = analysis.PowerOf(response[0]);
  const Power right = analysis.PowerOf(response[1]);
  for (std::size_t k = 0; k < sum.size(); ++k) {
    sum[k] += right[k];
  }
  return sum;
}

}  // namespace

double DirectOverReverberantDb(const Channels& response) {
  const std::span<const float> ear = LouderEar(response);
  const double direct = Energy(Direct(ear));
  return PowerToDb(direct / std::max(Energy(ear) - direct, 1e-20 * direct));
}

double RoomRippleDb(const Channels& response, const Channels& bare) {
  const std::size_t size = std::bit_ceil(std::max(response[0].size(), bare[0].size()));
  const SpectrumAnalysis analysis(size);
  const std::vector<double> centres = ThirdOctaves();
  return PeakToPeakDb(ThirdOctavePowers(BothEars(analysis, response), size, centres),
                      ThirdOctavePowers(BothEars(analysis, bare), size, centres));
}

std::vector<double> EnergyDecayDb(const Channels& response, double step_ms, std::size_t steps) {
  const std::span<const float> ear = LouderEar(response);
  const double all = Energy(ear);
  std::vector<double> decay_db;
  for (std::size_t i = 0; i < steps; ++i) {
    const auto from = static_cast<std::size_t>(std::lround(static_cast<double>(i) * step_ms * 48));
    decay_db.push_back(PowerToDb(from < ear.size() ? Energy(ear.subspan(from)) / all : 0));
  }
  return decay_db;
}

}  // namespace kelda::tools
