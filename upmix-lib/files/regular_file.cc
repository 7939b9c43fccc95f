#include "upmix-lib/files/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kelda::upmix_lib {

RegularFile::RegularFile(const std::string& path)
    : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat info = {};
  if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) {
    return;
  }
  if (!S_ISREG(info.st_mode)) {
    error_ = Error::kNotRegular;
    return;
  }
  size_bytes_ = static_cast<uint64_t>(info.st_size);
  error_ = Error::kNone;
}

RegularFile::~RegularFile() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

std::ptrdiff_t RegularFile::Read(std::span<std::byte> bytes) {
  const auto wanted = static_cast<std::size_t>(bytes.size());
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t count = read(descriptor_, bytes.data() + done, wanted - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      return -1;
    }
    if (count == 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::ptrdiff_t>(done);
}

}  // namespace kelda::upmix_lib
