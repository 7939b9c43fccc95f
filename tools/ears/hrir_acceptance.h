// Whether an HRIR set can serve, and what its maker should know about it.
#ifndef KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_
#define KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_

#include <string>

#include "tools/ears/sofa_hrirs.h"

namespace kelda::tools {

// Limits beyond which a set is refused.
inline constexpr double kMaxInterauralDelay_us = 1000;  // of any human head
inline constexpr double kMaxLost_db = -20;              // energy that the cut took off
inline constexpr double kMaxPeak_db = 24;               // gain at any frequency

// Throws FileFailure with `name`, the measurements' file, and every limit that is exceeded;
// also if the ears are exchanged.
void CheckHrirs(const HrirDesign& design, const std::string& name);

// The acceptance report: where the set comes from, each loudspeaker in a line, symmetry,
// peak gain, delays and what was cut off; last a warning if the ears give no direction.
std::string DescribeHrirs(const HrirDesign& design, const MeasuredEars& sofa);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_EARS_HRIR_ACCEPTANCE_H_
