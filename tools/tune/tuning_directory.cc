#include "tools/tune/tuning_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <span>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/interruption.h"
#include "tools/core/output_file.h"
#include "tools/core/text_file.h"
#include "upmix-lib/files/crc32.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxNameShown = 255;

std::error_code LastError() { return {errno, std::generic_category()}; }

// A new directory beside `target`, in which the new set is made and into which the old one is
// moved. The destructor removes it, with everything that is left in it.
class Workspace {
 public:
  explicit Workspace(const fs::path& target) : path_(target.string() + ".new-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      throw fs::filesystem_error("", path_, LastError());
    }
    fs::create_directory(fresh());
  }
  ~Workspace() {
    std::error_code ignored;
    if (!keep_) {
      fs::remove_all(path_, ignored);
    }
  }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  fs::path fresh() const { return fs::path(path_) / "fresh"; }
  fs::path old() const { return fs::path(path_) / "old"; }
  // Whether the destructor keeps it.
  void Keep(bool keep) { keep_ = keep; }

 private:
  std::string path_;
  bool keep_ = false;
};

// The directory that `path` names, with links followed. It need not exist.
fs::path Target(const fs::path& path) {
  // Without a trailing '/', which would make the workspace a child, nor a '.' at the end, which
  // cannot be renamed.
  return fs::weakly_canonical(FollowLinks(fs::absolute(path / "").parent_path()));
}

// A line of the manifest: the checksum of a file as it was made, and its name.
std::string ManifestLine(std::span<const std::byte> bytes, const std::string& name) {
  return Format("%08x ", static_cast<unsigned>(upmix_lib::Crc32(bytes))) + name + "\n";
}

std::string Manifest(const std::vector<TuningFile>& files) {
  std::string manifest = "# Made by kelda tune build, which replaces these files and no others.\n";
  for (const TuningFile& file : files) {
    manifest += ManifestLine(file.bytes, file.name);
  }
  return manifest;
}

// Throws Failure unless every file is as an earlier call left it.
void RefuseForeignFiles(const fs::path& directory) {
  constexpr std::size_t kMaxBytes = std::size_t{64} << 20;  // more than any tuning file
  const fs::path manifest = directory / kTuningManifest;
  std::string made = "\n";
  if (fs::exists(manifest)) {
    made += ReadWholeFile(manifest, kMaxBytes, ExitCode::kOutput);
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    if (name == kTuningManifest) {
      continue;
    }
    const auto as_made = [&] {
      const std::string bytes = ReadWholeFile(entry.path(), kMaxBytes, ExitCode::kOutput);
      return made.find('\n' + ManifestLine(std::as_bytes(std::span(bytes)), name)) !=
             std::string::npos;
    };
    if (entry.symlink_status().type() != fs::file_type::regular ||
        made.find(' ' + name + '\n') == std::string::npos || !as_made()) {
      throw Failure(ExitCode::kOutput, directory.string() + ": not replaced, " +
                                           Quoted(name, kMaxNameShown) +
                                           " in it is not as an earlier build left it");
    }
  }
}

void WriteFile(const fs::path& path, std::span<const std::byte> bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
  file.close();
  if (!file) {
    throw fs::filesystem_error("", path, LastError());
  }
}

// Moves the workspace's fresh directory to `target`, and `target`, if it exists, into the
// workspace.
void TakePlace(const fs::path& target, Workspace* workspace) {
  if (!fs::exists(target)) {
    fs::rename(workspace->fresh(), target);
    return;
  }
  if (renameat2(AT_FDCWD, workspace->fresh().c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) ==
      0) {
    return;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    throw fs::filesystem_error("", target, LastError());
  }
  // The file system cannot exchange directories.
  fs::rename(target, workspace->old());
  std::error_code failure;
  fs::rename(workspace->fresh(), target, failure);
  if (failure) {
    workspace->Keep(true);  // the old set is in it until it is back in its place
    fs::rename(workspace->old(), target);
    workspace->Keep(false);
    throw fs::filesystem_error("", target, failure);
  }
}

}  // namespace

void WriteTuningDirectory(const fs::path& directory, const std::vector<TuningFile>& files) {
  try {
    const fs::path target = Target(directory);
    const bool replaces = fs::exists(target);
    if (replaces) {
      RefuseForeignFiles(target);
    } else {
      fs::create_directories(target.parent_path());
    }
    Workspace workspace(target);
    for (const TuningFile& file : files) {
      WriteFile(workspace.fresh() / file.name, file.bytes);
    }
    const std::string manifest = Manifest(files);
    WriteFile(workspace.fresh() / kTuningManifest, std::as_bytes(std::span(manifest)));
    if (replaces) {
      fs::permissions(workspace.fresh(), fs::status(target).permissions());
    }
    CheckInterruption();
    TakePlace(target, &workspace);
  } catch (const fs::filesystem_error& error) {
    throw Failure(ExitCode::kOutput,
                  error.path1().string() + ": cannot be written: " + error.code().message());
  }
}

}  // namespace kelda::tools
