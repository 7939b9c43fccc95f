#include "upmix-lib/level/true_peak.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"
#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kKaiserBeta = 4.0;

// Modified Bessel function of the first kind and order 0, by its power series.
double BesselI0(double x) {
  double term = 1, sum = 1;
  for (int k = 1; k < 40; ++k) {
    term *= (x / (2 * k)) * (x / (2 * k));
    sum += term;
  }
  return sum;
}

// The interpolator at a distance of `frames`, not 0.
double WindowedSinc(double frames) {
  const double angle = kPi * frames;
  const double place = frames / TruePeak::kReachFrames;
  return std::sin(angle) / angle * BesselI0(kKaiserBeta * std::sqrt(1 - place * place)) /
         BesselI0(kKaiserBeta);
}

Vec Larger(Vec a, Vec b) { return a > b ? a : b; }
Vec LargerMagnitude(Vec peak, Vec v) { return Larger(Larger(peak, v), -v); }

}  // namespace

TruePeak::TruePeak() {
  // Scaled so that a constant signal is interpolated to itself.
  double half_sum = 0, quarter_sum = 0;
  for (int i = 1; i <= kReachFrames; ++i) {
    half_sum += 2 * WindowedSinc(i - 0.5);
    quarter_sum += WindowedSinc(i - 0.25) + WindowedSinc(i - 0.75);
  }
  for (int i = 1; i <= kReachFrames; ++i) {
    const double ahead = WindowedSinc(i - 0.25) / quarter_sum;
    const double behind = WindowedSinc(i - 0.75) / quarter_sum;
    taps_[static_cast<std::size_t>(i - 1)] = {static_cast<float>(WindowedSinc(i - 0.5) / half_sum),
                                              static_cast<float>((ahead + behind) / 2),
                                              static_cast<float>((ahead - behind) / 2)};
  }
}

float TruePeak::OfChunk(const float* frames) const {
  constexpr int kVectors = 2 * kChunkFrames / kLanes;
  Vec half[kVectors] = {}, even[kVectors] = {}, odd[kVectors] = {};
  for (int i = 1; i <= kReachFrames; ++i) {
    const Taps& taps = taps_[static_cast<std::size_t>(i - 1)];
#pragma GCC unroll 4
    for (int v = 0; v < kVectors; ++v) {
      const Vec ahead = Load<Vec>(frames + 2 * i + v * kLanes);
      const Vec behind = Load<Vec>(frames + 2 * (1 - i) + v * kLanes);
      half[v] += taps.half * (ahead + behind);
      even[v] += taps.quarter_even * (ahead + behind);
      odd[v] += taps.quarter_odd * (ahead - behind);
    }
  }
  Vec peaks{};
#pragma GCC unroll 4
  for (int v = 0; v < kVectors; ++v) {
    peaks = LargerMagnitude(peaks, Load<Vec>(frames + v * kLanes));
    peaks = LargerMagnitude(peaks, half[v]);
    peaks = LargerMagnitude(peaks, even[v] + odd[v]);
    peaks = LargerMagnitude(peaks, even[v] - odd[v]);
  }
  float peak = 0;
  for (int lane = 0; lane < kLanes; ++lane) {
    peak = std::max(peak, peaks[lane]);
  }
  return peak;
}

}  // namespace kelda::upmix_lib
