#ifndef KELDA_TOOLS_TUNING_BUILD_H_
#define KELDA_TOOLS_TUNING_BUILD_H_

#include <string>
#include <vector>

#include "tools/tune/tuning_directory.h"
#include "tools/tune/tuning_project.h"

namespace kelda::tools {

struct TuningBuild {
  std::vector<TuningFile> files;
  std::string report;    // what each file was made from and how it turned out
  std::string warnings;  // whole lines, or empty
};

// Makes every file of a tuning directory, in memory. One equalizer for both devices is in
// "personalized.ba", two are in "wired.ba" and "bluetooth.ba". Throws FileFailure for the
// first source that cannot be used, Interrupted.
TuningBuild BuildTuning(const TuningProject& project);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNING_BUILD_H_
