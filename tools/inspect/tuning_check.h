// What is missing or damaged in a directory of tuning files.
#ifndef KELDA_TOOLS_INSPECT_TUNING_CHECK_H_
#define KELDA_TOOLS_INSPECT_TUNING_CHECK_H_

#include <filesystem>
#include <string>
#include <vector>

namespace kelda::tools {

struct TuningFinding {
  enum class State { kOk, kMissing, kDamaged };
  std::string file;  // its name in the directory
  State state;
  std::string detail;  // what it holds, or what is wrong with it
  std::string effect;  // what the file is for
};

// "ok", "MISSING", "DAMAGED".
const char* Name(TuningFinding::State state);

// One finding a file: those that the effect looks for, and those that they name. Reads
// the files as the open signal library does.
std::vector<TuningFinding> CheckTuning(const std::filesystem::path& directory);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_INSPECT_TUNING_CHECK_H_
