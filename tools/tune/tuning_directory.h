#ifndef KELDA_TOOLS_TUNE_TUNING_DIRECTORY_H_
#define KELDA_TOOLS_TUNE_TUNING_DIRECTORY_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kelda::tools {

struct TuningFile {
  std::string name;  // without a directory
  std::vector<std::byte> bytes;
};

// The file that lists which files of a directory were made here. It is not a tuning file.
inline constexpr const char* kTuningManifest = ".kelda-tune-build";

// Makes `directory` hold exactly `files` and the manifest. The set is written beside it and
// exchanged with it, so that a reader finds the old set or the new one, but never a mixture. (If
// the file system cannot exchange directories, a reader finds none for an instant.)
//
// An existing directory is replaced only if every file in it has the name and the checksum that an
// earlier call gave it, so that nobody else's files are lost. A link to a directory is followed.
// Throws Failure (output) and Interrupted; what was there then stays as it was.
void WriteTuningDirectory(const std::filesystem::path& directory,
                          const std::vector<TuningFile>& files);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_TUNING_DIRECTORY_H_
