#include "diagnostics/capture_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace kelda {

FILE* OpenCaptureFile(const std::string& path, const char* mode) {
  const int begin = *mode == 'a' ? O_APPEND : O_TRUNC;
  const int descriptor =
      open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | begin, 0666);
  if (descriptor < 0) {
    return nullptr;
  }
  struct stat status {};
  FILE* file = nullptr;
  if (fstat(descriptor, &status) == 0) {
    if (S_ISREG(status.st_mode)) {
      file = fdopen(descriptor, mode);
    } else {
      errno = EOPNOTSUPP;
    }
  }
  if (file == nullptr) {
    const int error = errno;
    close(descriptor);
    errno = error;
  }
  return file;
}

}  // namespace kelda
