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

// The file in which a directory says what of it was made here. It is not tuning.
inline constexpr const char* kTuningManifest = ".kelda-tune-build";

// Makes `directory` hold exactly `files`, and the manifest. The set is written beside it and
// exchanged with it, so that a reader finds the old set or the new one, but never a mixture. (Where
// the file system cannot exchange, for an instant it finds none.)
//
// A directory that stands there is replaced only if every file in it is as an earlier call
// left it, by name and checksum: another's files are never lost. A link to a directory
// stands for the directory. Throws Failure (output), Interrupted, and leaves what was there.
void WriteTuningDirectory(const std::filesystem::path& directory,
                          const std::vector<TuningFile>& files);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNE_TUNING_DIRECTORY_H_
