#ifndef KELDA_TOOLS_DECIBELS_H_
#define KELDA_TOOLS_DECIBELS_H_

#include <algorithm>
#include <cmath>

namespace kelda::tools {

// 20 log10 of a magnitude, not below -200 dB.
inline double ToDb(double magnitude) { return 20 * std::log10(std::max(magnitude, 1e-10)); }

// 10 log10 of a power, not below -200 dB.
inline double PowerToDb(double power) { return 10 * std::log10(std::max(power, 1e-20)); }

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_DECIBELS_H_
