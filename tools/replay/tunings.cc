#include "tools/replay/tunings.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

constexpr const char* kLink = "tuning";

// What a login leaves nothing of, where there is one.
std::filesystem::path FolderOfThisRun() {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const std::filesystem::path parent = runtime != nullptr && *runtime != '\0'
                                           ? runtime
                                           : std::filesystem::temp_directory_path().string();
  std::string folder = parent / "kelda-XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    throw Failure(ExitCode::kOutput, parent.string() + ": " + std::strerror(errno));
  }
  return folder;
}

}  // namespace

Tunings::Tunings(const std::filesystem::path& first) : folder_(FolderOfThisRun()) {
  try {
    Add(first);
    if (!Use(0)) {
      throw Failure(ExitCode::kOutput, (folder_ / kLink).string() + ": " + std::strerror(errno));
    }
    UseTuningDirectory(folder_ / kLink);
  } catch (...) {
    std::filesystem::remove_all(folder_);
    throw;
  }
}

Tunings::~Tunings() {
  std::error_code error;  // what is left there does no harm
  std::filesystem::remove_all(folder_, error);
}

void Tunings::Add(const std::filesystem::path& directory) {
  CheckTuningDirectory(directory);
  const std::lock_guard lock(mutex_);
  directories_.push_back(std::filesystem::absolute(directory));
}

void Tunings::RemoveLast() {
  const std::lock_guard lock(mutex_);
  directories_.pop_back();
}

std::filesystem::path Tunings::last() const {
  const std::lock_guard lock(mutex_);
  return directories_.back();
}

bool Tunings::Use(uint32_t number) noexcept try {
  const std::lock_guard lock(mutex_);
  const std::filesystem::path& wanted = directories_.at(number);
  if (wanted == used_) {
    return true;
  }
  // In one step, so that there is a tuning at any time.
  const std::filesystem::path next = folder_ / "next";
  std::filesystem::remove(next);
  std::filesystem::create_directory_symlink(wanted, next);
  std::filesystem::rename(next, folder_ / kLink);
  used_ = wanted;
  return true;
} catch (const std::exception&) {
  return false;
}

}  // namespace kelda::tools
