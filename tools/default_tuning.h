#ifndef KELDA_TOOLS_DEFAULT_TUNING_H_
#define KELDA_TOOLS_DEFAULT_TUNING_H_

#include <string>
#include <vector>

#include "tools/tuning_directory.h"

namespace kelda::tools {

// The files of the default tuning, the set that the workstation and a phone without a
// tuning of its own start from. `sofa_path` holds the MIT KEMAR measurements. Throws
// Failure (input).
std::vector<TuningFile> MakeDefaultTuning(const std::string& sofa_path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_DEFAULT_TUNING_H_
