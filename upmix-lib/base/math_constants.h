// What <numbers> has: the phone's standard library is older than that header.
#ifndef KELDA_UPMIX_LIB_BASE_MATH_CONSTANTS_H_
#define KELDA_UPMIX_LIB_BASE_MATH_CONSTANTS_H_

namespace kelda::upmix_lib {

inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kSqrt2 = 1.41421356237309504880;

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_MATH_CONSTANTS_H_
