#ifndef KELDA_UPMIX_LIB_BASE_DECIBELS_H_
#define KELDA_UPMIX_LIB_BASE_DECIBELS_H_

#include <cmath>

namespace kelda::upmix_lib {

// The amplitude that is `level_db` above 1.
template <typename Float>
Float AmplitudeFromDb(Float level_db) {
  return std::pow(Float{10}, level_db / Float{20});
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_DECIBELS_H_
