// An inspected directory as text and as JSON.
#ifndef KELDA_TOOLS_INSPECT_INSPECTION_TEXT_H_
#define KELDA_TOOLS_INSPECT_INSPECTION_TEXT_H_

#include <string>

#include "tools/core/json.h"
#include "tools/inspect/inspected_directory.h"

namespace kelda::tools {

// For a person.
std::string FormatDirectory(const InspectedDirectory& directory);

// For a script: every file's contents, every decision.
Json DirectoryJson(const InspectedDirectory& directory);

// "wired.hki.config > standard.hki, upmix.music.hps.bin"
std::string FormatFiles(const Stage& stage);

// The name of an application of `table` for people; "(not listed)" for the first entry.
std::string ShownName(const DecisionTable& table, const AppDecision& app);

// The mode that auto runs for an application with flag 0, and the one with flag 1 if it differs:
// "music, flag 1: cinema".
std::string WithFlag(const std::string& plain, const std::string& flagged);

// The HRTF that "tuned" stands for on a device: "standard" or "personalized", whichever has the
// same decisions; empty if neither has.
std::string TunedHrtf(const DecisionTable& table, const std::string& device);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_INSPECTION_TEXT_H_
