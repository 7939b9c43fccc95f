// What <numbers> has: the phone's standard library is older than that header.
#ifndef KELDA_PLATFORM_MATH_CONSTANTS_H_
#define KELDA_PLATFORM_MATH_CONSTANTS_H_

namespace kelda {

inline constexpr double kPi = 3.14159265358979323846;
inline constexpr double kSqrt2 = 1.41421356237309504880;

}  // namespace kelda

#endif  // KELDA_PLATFORM_MATH_CONSTANTS_H_
