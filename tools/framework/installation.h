// Where the parts of an installation lie, relative to the running program:
//
//   PREFIX/bin/kelda    PREFIX/lib/kelda/*.so    PREFIX/share/kelda/tuning/
//
// The build tree has the same layout.
#ifndef KELDA_TOOLS_FRAMEWORK_INSTALLATION_H_
#define KELDA_TOOLS_FRAMEWORK_INSTALLATION_H_

#include <filesystem>

namespace kelda::tools {

std::filesystem::path DefaultEffectLibrary();
std::filesystem::path DefaultTuningDirectory();

// Throws Failure (usage) if it is not a directory.
void CheckTuningDirectory(const std::filesystem::path& directory);

// Chooses the tuning directory of the effect libraries that are loaded from now on, and returns
// it: `directory` if not empty, else KELDA_DATA_DIR of the environment, else the default set.
// Sets KELDA_DATA_DIR for these libraries, which have no other way to learn it; our own code is
// given the path. Throws Failure (usage) if the chosen one is not a directory.
std::filesystem::path UseTuningDirectory(const std::filesystem::path& directory);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_INSTALLATION_H_
