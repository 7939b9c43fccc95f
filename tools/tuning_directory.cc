#include "tools/tuning_directory.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <system_error>

#include "tools/failure.h"

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

void RefuseForeignFiles(const fs::path& directory, const std::vector<TuningFile>& files) {
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    const bool ours = std::any_of(files.begin(), files.end(),
                                  [&](const TuningFile& file) { return file.name == name; });
    if (!ours) {
      throw Failure(ExitCode::kOutput, directory.string() + ": not replaced, it holds \"" + name +
                                           "\", which is no file of the default tuning");
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
    if (replaces) {
      fs::rename(target, old.path());
    }
    std::error_code failure;
    fs::rename(fresh.path(), target, failure);
    if (failure) {
      if (replaces) {
        fs::rename(old.path(), target);
      }
      throw Failure(ExitCode::kOutput, target.string() + ": " + failure.message());
    }
  } catch (const fs::filesystem_error& error) {
    throw Failure(ExitCode::kOutput, error.what());
  }
}

}  // namespace kelda::tools
