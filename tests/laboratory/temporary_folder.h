// A folder for the files of a test or of a fuzz target.
#ifndef KELDA_TESTS_LABORATORY_TEMPORARY_FOLDER_H_
#define KELDA_TESTS_LABORATORY_TEMPORARY_FOLDER_H_

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kelda {

// Removed at the end, with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_((std::filesystem::temp_directory_path() / "kelda-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::runtime_error("cannot create " + path_);
    }
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& path() const { return path_; }  // without a trailing '/'
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  void Write(std::string_view name, std::string_view text) const {
    std::ofstream(*this / name, std::ios::binary) << text;
  }
  void Write(std::string_view name, std::span<const std::byte> bytes) const {
    Write(name, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
  }
  std::string Read(std::string_view name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // The names in the folder, hidden ones included.
  std::set<std::string> Names() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }

 private:
  std::string path_;
};

}  // namespace kelda

#endif  // KELDA_TESTS_LABORATORY_TEMPORARY_FOLDER_H_
