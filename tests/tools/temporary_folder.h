// A folder that lives as long as a test.
#ifndef KELDA_TESTS_TOOLS_TEMPORARY_FOLDER_H_
#define KELDA_TESTS_TOOLS_TEMPORARY_FOLDER_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

namespace kelda::tools {

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

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(*this / name, std::ios::binary) << text;
  }
  std::string Read(const std::string& name) const {
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

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_TEMPORARY_FOLDER_H_
