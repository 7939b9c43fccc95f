#include "tools/tune/tuning_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <system_error>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

// A directory beside another one, removed at the end if it is still there.
class SiblingDirectory {
 public:
  SiblingDirectory(const fs::path& directory, const std::string& suffix)
      : path_(directory.string() + "." + suffix + std::to_string(getpid())) {
    Remove();
  }
  ~SiblingDirectory() { Remove(); }
  SiblingDirectory(const SiblingDirectory&) = delete;
  SiblingDirectory& operator=(const SiblingDirectory&) = delete;

  const fs::path& path() const { return path_; }

 private:
  void Remove() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  fs::path path_;
};

// Whether a tuning directory may hold a file of this name.
bool IsTuningFile(std::string_view name) {
  constexpr std::string_view kEndings[] = {".hki", ".ba", ".hki.config", ".ba.config"};
  constexpr std::string_view kNames[] = {
      "tunedapp_list",        "upmix.music.hps.bin", "upmix.music.hpp.bin", "upmix.cinema.hps.bin",
      "upmix.cinema.hpp.bin", "upl.music.bin",       "upl.cinema.bin"};
  return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames) ||
         std::any_of(std::begin(kEndings), std::end(kEndings),
                     [&](std::string_view ending) { return name.ends_with(ending); });
}

void RefuseForeignFiles(const fs::path& directory, const std::vector<TuningFile>& files) {
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    const bool ours = std::any_of(files.begin(), files.end(),
                                  [&](const TuningFile& file) { return file.name == name; });
    if (!ours && !(IsTuningFile(name) && entry.is_regular_file())) {
      throw Failure(ExitCode::kOutput, directory.string() + ": not replaced, it holds \"" + name +
                                           "\", which is no tuning file");
    }
  }
}

void WriteFile(const fs::path& path, const std::vector<std::byte>& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
  file.close();
  if (!file) {
    throw Failure(ExitCode::kOutput, path.string() + ": cannot be written");
  }
}

// Gives `fresh` the place of `target`, and `target`, if it is there, the name `old`.
void TakePlace(const fs::path& fresh, const fs::path& target, const fs::path& old) {
  if (!fs::exists(target)) {
    fs::rename(fresh, target);
    return;
  }
  if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0) {
    fs::rename(fresh, old);
    return;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    throw fs::filesystem_error("cannot be replaced", target,
                               std::error_code(errno, std::generic_category()));
  }
  // A file system that cannot exchange.
  fs::rename(target, old);
  std::error_code failure;
  fs::rename(fresh, target, failure);
  if (failure) {
    fs::rename(old, target);
    throw fs::filesystem_error("cannot be replaced", target, failure);
  }
}

}  // namespace

void WriteTuningDirectory(const fs::path& directory, const std::vector<TuningFile>& files) {
  try {
    // Without a trailing '/', which would make the siblings children.
    const fs::path target = fs::absolute(directory / "").parent_path();
    const bool replaces = fs::exists(target);
    if (replaces) {
      RefuseForeignFiles(target, files);
    }
    const SiblingDirectory fresh(target, "new");
    const SiblingDirectory old(target, "old");
    fs::create_directories(fresh.path());
    for (const TuningFile& file : files) {
      WriteFile(fresh.path() / file.name, file.bytes);
    }
    if (replaces) fs::permissions(fresh.path(), fs::status(target).permissions());
    TakePlace(fresh.path(), target, old.path());
  } catch (const fs::filesystem_error& error) {
    throw Failure(ExitCode::kOutput, error.what());
  }
}

}  // namespace kelda::tools
