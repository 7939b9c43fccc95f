#ifndef KELDA_TOOLS_TUNING_DIRECTORY_H_
#define KELDA_TOOLS_TUNING_DIRECTORY_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace kelda::tools {

struct TuningFile {
  std::string name;  // without a directory
  std::vector<std::byte> bytes;
};

// Makes `directory` hold exactly `files`. The set is written beside it and exchanged with
// it, so that a reader finds the old set or the new one, but never a mixture. (Where the
// file system cannot exchange, for an instant it finds none.)
//
// A directory that stands there is replaced only if it holds nothing but tuning files and
// files of these names: another's files are never lost. Throws Failure (output) and leaves
// what was there.
void WriteTuningDirectory(const std::filesystem::path& directory,
                          const std::vector<TuningFile>& files);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_TUNING_DIRECTORY_H_
