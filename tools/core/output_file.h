// A file that appears under its name only when it is complete.
#ifndef KELDA_TOOLS_CORE_OUTPUT_FILE_H_
#define KELDA_TOOLS_CORE_OUTPUT_FILE_H_

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>

namespace kelda::tools {

// Writes all of `bytes`. Returns false, with errno, if that fails.
bool WriteAll(int descriptor, std::span<const std::byte> bytes);

// The path that `path` names in the end, with links followed. Nothing need exist there. Throws
// std::filesystem::filesystem_error.
std::filesystem::path FollowLinks(std::filesystem::path path);

// Written under a temporary name in the same folder; the destructor removes it
// unless Commit was called. Until then a file that already has the name stays as it is.
class OutputFile {
 public:
  // Throws Failure (output) with the reason. A symbolic link is followed.
  explicit OutputFile(const std::filesystem::path& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Open for reading and writing, owned by this object.
  int descriptor() const { return descriptor_; }
  const std::filesystem::path& path() const { return path_; }

  // Appends `bytes`. Throws Failure (output).
  void Write(std::span<const std::byte> bytes);

  // Closes the file and gives it its name. Throws Failure (output).
  void Commit();

 private:
  std::filesystem::path path_;
  std::string temporary_;  // empty once committed
  int descriptor_ = -1;
};

// Writes a whole file. Throws Failure (output) and Interrupted; no file is made then.
void WriteWholeFile(const std::filesystem::path& path, std::span<const std::byte> bytes);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_OUTPUT_FILE_H_
