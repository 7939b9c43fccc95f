// Which stages the engine runs with which files, for every device, HRTF and mode. The engine's own
// plan (engine/plan.h) says which settings have the same result, and the effect library itself is
// asked about each plan. For each answer a new instance gets the settings as a phone sends them;
// the answer is in its report and its log.
#ifndef KELDA_TOOLS_INSPECT_DECISION_TABLE_H_
#define KELDA_TOOLS_INSPECT_DECISION_TABLE_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/effect_report.h"

namespace kelda::tools {

struct Decision {
  std::string device;  // "other", "wired", "bluetooth"
  std::string hrtf;    // "tuned" (as the tuning says), "standard", "personalized"
  std::string mode;    // "off", "music", "cinema", "auto"
  std::vector<Stage> stages;
  std::vector<std::string> problems;  // log lines of stages that run but could not load

  bool operator==(const Decision&) const = default;
};

// The mode that mode auto runs for an application: "off", "music" or "cinema".
struct AppDecision {
  std::string package;  // "" stands for every package that is not in the list
  bool known;           // whether the list has it; then the flag makes no difference
  std::string other, wired, bluetooth;           // the mode with flag 0
  std::string flagged_wired, flagged_bluetooth;  // the mode with flag 1
};

struct DecisionTable {
  std::vector<Decision> decisions;     // by device, HRTF, mode
  std::vector<AppDecision> apps;       // the first stands for those that are not listed
  std::vector<std::string> warnings;   // of the engine, about its HRTF configurations and its list
  std::vector<std::string> unaskable;  // packages that hold an '&': no phone can name them
};

// Asks about the tuning in `directory`, which UseTuningDirectory returned before `library` was
// loaded, and about `packages`. The property vendor.kelda.effect must be 1. Replaces the log's
// logger while it asks. Throws Failure (refused), Interrupted.
DecisionTable AskDecisions(const std::filesystem::path& directory, const EffectLibrary& library,
                           const std::vector<std::string>& packages);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_DECISION_TABLE_H_
