#ifndef KELDA_TESTS_UPMIX_LIB_NOISE_H_
#define KELDA_TESTS_UPMIX_LIB_NOISE_H_

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace kelda::upmix_lib {

// White noise of the given peak; the same seed gives the same noise.
inline std::vector<float> Noise(std::size_t count, uint32_t seed, float peak = 0.5f) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> uniform(-peak, peak);
  std::vector<float> noise(count);
  for (float& sample : noise) {
    sample = uniform(generator);
  }
  return noise;
}

// Power of the difference relative to the power of `expected`, in decibels.
template <typename Actual, typename Expected>
double ErrorDb(std::span<const Actual> actual, std::span<const Expected> expected) {
  double error = 0.0, power = 0.0;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const double difference = static_cast<double>(actual[i]) - static_cast<double>(expected[i]);
    error += difference * difference;
    power += static_cast<double>(expected[i]) * static_cast<double>(expected[i]);
  }
  return 10.0 * std::log10(error / power);
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_NOISE_H_
