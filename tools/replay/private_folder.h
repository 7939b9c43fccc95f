#ifndef KELDA_TOOLS_REPLAY_PRIVATE_FOLDER_H_
#define KELDA_TOOLS_REPLAY_PRIVATE_FOLDER_H_

#include <filesystem>

namespace kelda::tools {

// A folder that nobody else can read, removed at the end: where a login leaves nothing of it, or
// else where temporary files are.
class PrivateFolder {
 public:
  // `name` is followed by characters at random. Throws Failure (output).
  explicit PrivateFolder(const char* name);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPLAY_PRIVATE_FOLDER_H_
