#ifndef KELDA_TOOLS_CORE_DECIBELS_H_
#define KELDA_TOOLS_CORE_DECIBELS_H_

namespace kelda::tools {

// 20 log10 of a magnitude, not below -200 dB.
double ToDb(double magnitude);

// 10 log10 of a power, not below -200 dB.
double PowerToDb(double power);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_DECIBELS_H_
