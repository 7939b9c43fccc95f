#ifndef KELDA_TOOLS_TUNE_TUNING_BUILD_H_
#define KELDA_TOOLS_TUNE_TUNING_BUILD_H_

#include <functional>
#include <string>
#include <vector>

#include "tools/tune/tuning_directory.h"
#include "tools/tune/tuning_project.h"

namespace kelda::tools {

struct TuningBuild {
  std::vector<TuningFile> files;
  std::string report;  // what each file was made from and how it turned out
};

// Takes whole lines, without a line end after the last.
using WarningReceiver = std::function<void(const std::string& lines)>;

// Makes every file of a tuning directory, in memory. If both devices have the same equalizer, it
// becomes "personalized.ba"; otherwise they become "wired.ba" and "bluetooth.ba". Throws Failure
// for the first source that cannot be used, and Interrupted.
TuningBuild BuildTuning(const TuningProject& project, const WarningReceiver& warn);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_TUNING_BUILD_H_
