#ifndef KELDA_TOOLS_LIBRARY_LIBRARY_DOCTOR_H_
#define KELDA_TOOLS_LIBRARY_LIBRARY_DOCTOR_H_

#include <filesystem>

namespace kelda::tools {

// Prints whether the signal library `directory`/libupmix-lib.so fits the effect: the symbols that
// it exports and, for each component, the sizes that it reports, the status of every call and the
// result of processing blocks of audio. The components load the files of `tuning`. Each component
// is tried in a process of its own, so that a crash or a hang is reported as well. A library for
// another processor is not run.
//
// Returns whether all of it fits. Throws Failure (input) if there is no such library.
bool DiagnoseLibrary(const std::filesystem::path& directory, const std::filesystem::path& tuning);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIBRARY_LIBRARY_DOCTOR_H_
