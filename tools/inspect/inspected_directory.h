// A directory of tuning files: each file, what is missing, and what the engine does with them.
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
  InspectedFile file;   // kUsable and kFaulty
  std::string purpose;  // what the listener gets from it, or which file names it; empty if kUnused
};

struct InspectedDirectory {
  std::filesystem::path path;
  std::vector<DirectoryEntry> entries;
  DecisionTable decisions;
};

// Reads every file of `directory`: first those that the effect looks for by their names, then those
// that these name, then those that it never looks for. A file is faulty if its kind is not the kind
// that belongs under its name. Throws Failure (input) if the directory cannot be read.
std::vector<DirectoryEntry> ReadTuning(const std::filesystem::path& directory);

// Looks at `directory`, which UseTuningDirectory returned. Throws what ReadTuning and
// AskDecisions throw.
InspectedDirectory InspectDirectory(const std::filesystem::path& directory,
                                    const EffectLibrary& library);

// "ok", "missing", "faulty", "unused".
const char* Name(DirectoryEntry::State state);

// What a listing of the directory says about the entry.
std::string Note(const DirectoryEntry& entry);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_INSPECTED_DIRECTORY_H_
