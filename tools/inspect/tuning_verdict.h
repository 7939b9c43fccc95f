// Whether a tuning is whole. The exit codes of kelda inspect, doctor and report are decided here.
//
// There are two questions. inspect and report ask whether the engine can run what the tuning itself
// chooses (Problems). doctor asks whether a listener may choose any output, ears and mode and hear
// it as it should be (IsWhole): this is stricter, as it includes files that only other ears need.
#ifndef KELDA_TOOLS_INSPECT_TUNING_VERDICT_H_
#define KELDA_TOOLS_INSPECT_TUNING_VERDICT_H_

#include <string>
#include <vector>

#include "tools/inspect/inspected_directory.h"
#include "tools/inspect/tuning_trial.h"

namespace kelda::tools {

// Lines "FILE: what is wrong", one for every faulty file and one for every stage that cannot load
// with the HRTF that the tuning chooses. Empty if nothing is wrong.
std::string Problems(const InspectedDirectory& directory);

// What is wrong with a file of the tuning: "MISSING", "DAMAGED", or "ok" if nothing is. Null for a
// file that the effect never looks for.
const char* Finding(const DirectoryEntry& entry);

// Whether no file is missing or damaged and everything was heard as it should be. Only the list of
// tuned applications may be missing.
bool IsWhole(const std::vector<DirectoryEntry>& entries, const TuningTrial& trial);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_TUNING_VERDICT_H_
