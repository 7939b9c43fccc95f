// Which stages the engine runs with which files, for every device, HRTF and mode. The engine's own
// plan (engine/plan.h) says which settings come to the same; the effect library itself is asked
// about each plan. Each answer comes from an instance of its own that is told the settings as a
// phone tells them, and is read off its report and its log.
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
  std::vector<std::string> problems;  // the log lines of stages that run, and could not load

  bool operator==(const Decision&) const = default;
};

// What mode auto does for an application; the modes are "off", "music" or "cinema".
struct AppDecision {
  std::string package;  // "" with `known` false: one that the list does not have
  bool known;           // whether the list has it, so that the flag makes no difference
  std::string other, wired, bluetooth;           // the mode that runs; flag 0
  std::string flagged_wired, flagged_bluetooth;  // with flag 1
};

struct DecisionTable {
  std::vector<Decision> decisions;     // by device, HRTF, mode
  std::vector<AppDecision> apps;       // the first: none that is listed
  std::vector<std::string> warnings;   // of the engine about its HRTF configurations and its list
  std::vector<std::string> unaskable;  // packages that hold an '&': no phone can name them
};

// Asks about the tuning in `directory`, which UseTuningDirectory returned before `library` was
// loaded, and about `packages`. The property vendor.kelda.effect must be 1. Replaces the log's
// logger while it asks. Throws Failure (refused), Interrupted.
DecisionTable AskDecisions(const std::filesystem::path& directory, const EffectLibrary& library,
                           const std::vector<std::string>& packages);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_DECISION_TABLE_H_
