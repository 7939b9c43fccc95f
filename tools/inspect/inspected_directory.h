// A directory of tuning files: each of them, what is missing, and what the engine makes of it.
#ifndef KELDA_TOOLS_INSPECT_INSPECTED_DIRECTORY_H_
#define KELDA_TOOLS_INSPECT_INSPECTED_DIRECTORY_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/inspect/decision_table.h"
#include "tools/inspect/inspected_file.h"

namespace kelda::tools {

struct DirectoryEntry {
  enum class State {
    kUsable,
    kMissing,  // the engine may look for it and will not find it
    kFaulty,
    kUnused,  // the engine never looks for it
  };
  std::string name;
  State state;
  InspectedFile file;  // kUsable and kFaulty
};

struct InspectedDirectory {
  std::filesystem::path path;
  std::vector<DirectoryEntry> entries;
  DecisionTable decisions;

  // What keeps the engine from running as the tuning says, as lines "FILE: what is wrong";
  // empty if nothing does.
  std::string Problems() const;
};

// Looks at `directory`, which the effect uses (UseTuningDirectory). Throws what AskDecisions
// throws.
InspectedDirectory InspectDirectory(const std::filesystem::path& directory,
                                    const EffectLibrary& library);

const char* Name(DirectoryEntry::State state);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_INSPECTED_DIRECTORY_H_
