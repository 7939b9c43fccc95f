#include "tools/replay/tunings.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>

#include "tools/core/failure.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

constexpr const char* kLink = "tuning";

}  // namespace

Tunings::Tunings(const std::filesystem::path& first) {
  Add(first);
  if (!Use(0)) {
    throw Failure(ExitCode::kOutput,
                  (folder_.path() / kLink).string() + ": " + std::strerror(errno));
  }
  UseTuningDirectory(folder_.path() / kLink);
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
  const std::filesystem::path next = folder_.path() / "next";
  std::filesystem::remove(next);
  std::filesystem::create_directory_symlink(wanted, next);
  std::filesystem::rename(next, folder_.path() / kLink);
  used_ = wanted;
  return true;
} catch (const std::exception&) {
  return false;
}

}  // namespace kelda::tools
