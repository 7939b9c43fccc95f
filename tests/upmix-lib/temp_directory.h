#ifndef KELDA_TESTS_UPMIX_LIB_TEMP_DIRECTORY_H_
#define KELDA_TESTS_UPMIX_LIB_TEMP_DIRECTORY_H_

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <string_view>

#include <unistd.h>

namespace kelda::upmix_lib {

// A directory of its own for a test's files, removed with them at the end.
class TempDirectory {
 public:
  TempDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "kelda_test_XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~TempDirectory() { std::filesystem::remove_all(path_); }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  const std::string& path() const { return path_; }  // without a trailing '/'
  std::string File(std::string_view name) const { return path_ + "/" + std::string(name); }

  void Write(std::string_view name, std::string_view text) const {
    std::ofstream(File(name), std::ios::binary) << text;
  }
  void Write(std::string_view name, std::span<const std::byte> bytes) const {
    Write(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  // A data file, and the configuration file "config" that names it.
  void Install(std::span<const std::byte> data) const {
    Write("data", data);
    Write("config", "data\n");
  }

 private:
  std::string path_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_TEMP_DIRECTORY_H_
