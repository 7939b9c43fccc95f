// Projects: a whole tuning directory described by one TOML file.
#ifndef KELDA_TOOLS_TUNE_TUNING_PROJECT_H_
#define KELDA_TOOLS_TUNE_TUNING_PROJECT_H_

#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "tools/ears/sofa_hrirs.h"

namespace kelda::tools {

// A path is empty where the project names none. Relative paths start at the folder of the project.
struct TuningProject {
  struct Ears {
    std::filesystem::path sofa;
    std::filesystem::path room;
    HrirOptions options;  // its room is not set
  };
  struct Device {
    std::string hrtf;  // the type it starts with, a key of `ears`
    std::filesystem::path equalizer;
  };
  struct Presets {
    std::filesystem::path standard, personalized;  // of an upmix
  };

  std::map<std::string, Ears> ears;                     // by type: standard, personalized, speaker
  std::map<std::string, Device> devices;                // wired, bluetooth
  std::map<std::string, Presets> upmixes;               // music, cinema
  std::map<std::string, std::filesystem::path> levels;  // music, cinema
  bool level_as_input = false;                          // a fixed gain in place of levelling
  std::filesystem::path applications;
};

// Finds the file that a project names; empty if it may not name that one.
using FileResolver = std::function<std::filesystem::path(const std::string& name)>;

// Throws FileFailure with every key that is missing, unknown or wrong, or names a file that
// cannot be opened. Reads none of those files. Without `resolve` they start at the project's
// folder.
TuningProject ReadTuningProject(const std::filesystem::path& path,
                                const FileResolver& resolve = {});

// A commented project to start from.
std::string ProjectTemplate();

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_TUNING_PROJECT_H_
