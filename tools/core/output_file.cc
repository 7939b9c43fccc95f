#include "tools/core/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/core/failure.h"
#include "tools/core/interruption.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void Refuse(const fs::path& path, const char* reason) {
  throw Failure(ExitCode::kOutput, path.string() + ": cannot be written: " + reason);
}

// The permissions of the file that is replaced, or those of a new file.
mode_t Permissions(const fs::path& path) {
  struct stat existing {};
  if (stat(path.c_str(), &existing) == 0) {
    return existing.st_mode & 0777;
  }
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

bool WriteAll(int descriptor, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

fs::path FollowLinks(fs::path path) {
  constexpr int kMostLinks = 40;  // as the kernel
  for (int links = 0; fs::is_symlink(path); ++links) {
    if (links == kMostLinks) {
      throw fs::filesystem_error("", path,
                                 std::make_error_code(std::errc::too_many_symbolic_link_levels));
    }
    // Without a trailing '/', behind which the link would be followed.
    path = (path.parent_path() / fs::read_symlink(path) / "").parent_path();
  }
  return path;
}

OutputFile::OutputFile(const fs::path& path) : path_(path) {
  try {
    path_ = FollowLinks(path);
  } catch (const fs::filesystem_error& failure) {
    Refuse(path, failure.code().message().c_str());
  }
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  if (fs::exists(status)) {
    if (!fs::is_regular_file(status)) {
      Refuse(path, "it exists and is not a regular file");
    }
    if (access(path_.c_str(), W_OK) != 0) {
      Refuse(path, std::strerror(errno));
    }
  }
  temporary_ = (path_.parent_path() / ".kelda-XXXXXX").string();
  descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
  if (descriptor_ < 0) {
    Refuse(path, std::strerror(errno));
  }
  if (fchmod(descriptor_, Permissions(path_)) != 0) {
    const int reason = errno;
    close(descriptor_);
    unlink(temporary_.c_str());
    Refuse(path, std::strerror(reason));
  }
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
  if (!temporary_.empty()) {
    unlink(temporary_.c_str());
  }
}

void OutputFile::Write(std::span<const std::byte> bytes) {
  if (!WriteAll(descriptor_, bytes)) {
    Refuse(path_, std::strerror(errno));
  }
}

void OutputFile::Commit() {
  // Some file systems report only here that the disk is full.
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (close(descriptor) != 0 || std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    Refuse(path_, std::strerror(errno));
  }
  temporary_.clear();
}

void WriteWholeFile(const fs::path& path, std::span<const std::byte> bytes) {
  OutputFile file(path);
  file.Write(bytes);
  CheckInterruption();
  file.Commit();
}

}  // namespace kelda::tools
