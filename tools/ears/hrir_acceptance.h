// Checks whether an HRIR set can be used, and describes it to the person who made it.
#ifndef KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_
#define KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_

#include <string>

#include "tools/ears/sofa_hrirs.h"

namespace kelda::tools {

// Limits beyond which a set is refused.
inline constexpr double kMaxInterauralDelayUs = 1000;  // of any human head
inline constexpr double kMaxLostDb = -20;              // energy that was cut off
inline constexpr double kMaxPeakDb = 24;               // gain at any frequency

// Throws FileFailure with every limit that is exceeded, also if the ears are exchanged. `name` is
// the file of the measurements, for messages.
void CheckHrirs(const HrirDesign& design, const std::string& name);

// The acceptance report: where the set comes from, a line for each loudspeaker (with its peak
// gains, delay and the energy that was cut off), symmetry, and at the end a warning if the ears
// give no direction.
std::string DescribeHrirs(const HrirDesign& design, const MeasuredEars& sofa);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_
