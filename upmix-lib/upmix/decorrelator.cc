#include "upmix-lib/upmix/decorrelator.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "upmix-lib/base/decibels.h"

namespace kelda::upmix_lib {
namespace {

// Of the seeds 1 to 6000 a pair with flat third-octave responses (standard deviation 0.6 dB above
// 400 Hz) and little coherence with each other and with the input.
constexpr uint32_t kSeeds[2] = {4898, 4274};
constexpr double kDecayDb = 20.0;  // over the filter's length

// Uniform in [0, 1) (W. H. Press et al., "Numerical Recipes", quick and dirty generator).
double Random(uint32_t& state) {
  state = state * 1664525u + 1013904223u;
  return state / 4294967296.0;
}

// `side` is 0 or 1.
SparseFilter DecorrelationFilter(int side) {
  uint32_t state = kSeeds[side] * 2654435769u;
  SparseFilter filter;
  constexpr double kSpacing = static_cast<double>(kDecorrelatorFrames) / kDecorrelatorTaps;
  double energy = 0.0;
  for (int i = 0; i < kDecorrelatorTaps; ++i) {
    const double at = kSpacing * (i + Random(state));
    const double size = AmplitudeFromDb(-kDecayDb * at / kDecorrelatorFrames);
    filter.delay_frames[i] = std::min(static_cast<int>(at), kDecorrelatorFrames - 1);
    filter.gain[i] = static_cast<float>(Random(state) < 0.5 ? -size : size);
    energy += size * size;
  }
  const auto scale = static_cast<float>(1.0 / std::sqrt(energy));
  for (float& gain : filter.gain) {
    gain *= scale;
  }
  return filter;
}

}  // namespace

Decorrelator::Decorrelator() : filters_{DecorrelationFilter(0), DecorrelationFilter(1)} {}

// Four vectors of sums at a time, so that they stay in registers.
void Decorrelator::Apply(const SparseFilter& filter, const float* newest, float* out) {
  static_assert(kHopFrames % (4 * kLanes) == 0);
  for (int n = 0; n < kHopFrames; n += 4 * kLanes) {
    Vec sum0 = {}, sum1 = {}, sum2 = {}, sum3 = {};
    for (int i = 0; i < kDecorrelatorTaps; ++i) {
      const float* from = newest + n - filter.delay_frames[i];
      const float gain = filter.gain[i];
      sum0 += gain * Load<Vec>(from);
      sum1 += gain * Load<Vec>(from + kLanes);
      sum2 += gain * Load<Vec>(from + 2 * kLanes);
      sum3 += gain * Load<Vec>(from + 3 * kLanes);
    }
    Store(out + n, sum0);
    Store(out + n + kLanes, sum1);
    Store(out + n + 2 * kLanes, sum2);
    Store(out + n + 3 * kLanes, sum3);
  }
}

void Decorrelator::Process(const float* in, float* first, float* second) {
  history_.Append(in);
  Apply(filters_[0], history_.newest(), first);
  Apply(filters_[1], history_.newest(), second);
}

}  // namespace kelda::upmix_lib
