#include "tools/inspect/tuning_verdict.h"

#include <algorithm>

#include "settings/tuning_directory.h"
#include "tools/core/printable.h"

namespace kelda::tools {

std::string Problems(const InspectedDirectory& directory) {
  std::string lines;
  const auto add = [&](const std::string& line) {
    if (lines.find(line) == std::string::npos) {
      lines += (lines.empty() ? "" : "\n") + line;
    }
  };
  for (const DirectoryEntry& entry : directory.entries) {
    if (entry.state == DirectoryEntry::State::kFaulty) {
      add((directory.path / Printable(entry.name)).string() + ": " + entry.file.problem);
    }
  }
  for (const Decision& decision : directory.decisions.decisions) {
    if (decision.hrtf == "tuned") {
      for (const std::string& problem : decision.problems) {
        add(directory.path.string() + ": " + decision.device + ", " + decision.mode + ": " +
            problem);
      }
    }
  }
  return lines;
}

const char* Finding(const DirectoryEntry& entry) {
  switch (entry.state) {
    case DirectoryEntry::State::kUsable:
      return "ok";
    case DirectoryEntry::State::kMissing:
      return "MISSING";
    case DirectoryEntry::State::kFaulty:
      return "DAMAGED";
    case DirectoryEntry::State::kUnused:
      return nullptr;
  }
  return nullptr;
}

bool IsWhole(const std::vector<DirectoryEntry>& entries, const TuningTrial& trial) {
  const auto in_order = [](const DirectoryEntry& entry) {
    return entry.state == DirectoryEntry::State::kUsable ||
           entry.state == DirectoryEntry::State::kUnused ||
           (entry.state == DirectoryEntry::State::kMissing &&
            entry.name == tuning_file::kAppList.name);
  };
  return std::all_of(entries.begin(), entries.end(), in_order) &&
         std::all_of(trial.heard.begin(), trial.heard.end(), AsItShouldBe);
}

}  // namespace kelda::tools
