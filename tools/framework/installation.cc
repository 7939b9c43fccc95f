#include "tools/framework/installation.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

std::filesystem::path Prefix() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}

}  // namespace

std::filesystem::path DefaultEffectLibrary() {
  return Prefix() / "lib" / "kelda" / "libkelupmix.so";
}

std::filesystem::path DefaultTuningDirectory() { return Prefix() / "share" / "kelda" / "tuning"; }

void CheckTuningDirectory(const std::filesystem::path& directory) {
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error)) {
    throw Failure(ExitCode::kUsage, directory.string() + ": not a directory of tuning files");
  }
}

std::filesystem::path UseTuningDirectory(const std::filesystem::path& directory) {
  std::filesystem::path chosen = directory;
  if (chosen.empty()) {
    const char* environment = std::getenv("KELDA_DATA_DIR");
    chosen = environment != nullptr && *environment != '\0' ? environment
                                                            : DefaultTuningDirectory().string();
  }
  CheckTuningDirectory(chosen);
  if (setenv("KELDA_DATA_DIR", chosen.c_str(), 1) != 0) {
    throw std::system_error(errno, std::generic_category(), "setenv");
  }
  return chosen;
}

}  // namespace kelda::tools
