#ifndef KELDA_UPMIX_LIB_BASE_DECIBELS_H_
#define KELDA_UPMIX_LIB_BASE_DECIBELS_H_

#include <cmath>

namespace kelda::upmix_lib {

// The amplitude that is `level_db` above 1.
template <typename Float>
Float AmplitudeFromDb(Float level_db) {
  return std::pow(Float{10}, level_db / Float{20});
}

// The power, or the energy, that is `level_db` above 1.
inline double PowerFromDb(double level_db) { return std::pow(10.0, level_db / 10.0); }

// Levels above 1; of silence minus infinity.
inline double DbFromAmplitude(double amplitude) { return 20.0 * std::log10(amplitude); }
inline double DbFromPower(double power) { return 10.0 * std::log10(power); }

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_DECIBELS_H_
