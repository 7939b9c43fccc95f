#include "tools/core/text_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/core/file_problems.h"
#include "tools/core/interruption.h"
#include "tools/core/printable.h"

namespace kelda::tools {
namespace {

// A regular file opened for reading. A pipe or a device is refused without waiting for it.
class RegularFile {
 public:
  explicit RegularFile(const std::filesystem::path& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    struct stat info {};
    if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) {
      problem_ = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
      problem_ = "not a regular file";
    }
    size_bytes_ = static_cast<std::size_t>(info.st_size);
  }
  ~RegularFile() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;

  const std::string& problem() const { return problem_; }  // empty if there is none
  std::size_t size_bytes() const { return size_bytes_; }

  // All of it; sets the problem if that fails.
  std::string Read() {
    std::string bytes(size_bytes_, '\0');
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t count = read(descriptor_, bytes.data() + done, bytes.size() - done);
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count <= 0) {
        problem_ = count < 0 ? std::strerror(errno) : "it became shorter meanwhile";
        break;
      }
      done += static_cast<std::size_t>(count);
    }
    return bytes;
  }

 private:
  int descriptor_;
  std::size_t size_bytes_ = 0;
  std::string problem_;
};

// What ReadTextFile says of its file's bytes.
std::string AsText(const std::string& name, std::string text, ExitCode code) {
  if (text.starts_with("\xEF\xBB\xBF")) {
    text.erase(0, 3);
  }
  if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
    throw Failure(code, name + ": in UTF-16; save it as UTF-8");
  }
  if (const std::size_t at = text.find('\0'); at != std::string::npos) {
    FileProblems problems(name);
    problems.Add(static_cast<std::size_t>(
                     1 + std::count(text.begin(), text.begin() + static_cast<long>(at), '\n')),
                 "not a text file (it holds a NUL byte)");
    problems.ThrowIfAny("", code);
  }
  return text;
}

}  // namespace

std::string WhyUnreadable(const std::filesystem::path& path) { return RegularFile(path).problem(); }

std::string ReadWholeFile(const std::filesystem::path& path, std::size_t max_bytes, ExitCode code) {
  RegularFile file(path);
  if (file.problem().empty() && file.size_bytes() > max_bytes) {
    throw Failure(code, path.string() + ": too large (" + std::to_string(file.size_bytes()) +
                            " bytes, at most " + std::to_string(max_bytes) + ")");
  }
  std::string bytes = file.problem().empty() ? file.Read() : "";
  if (!file.problem().empty()) {
    throw Failure(code, path.string() + ": cannot be read: " + file.problem());
  }
  return bytes;
}

std::string ReadTextFile(const std::filesystem::path& path, std::size_t max_bytes, ExitCode code) {
  return AsText(path.string(), ReadWholeFile(path, max_bytes, code), code);
}

std::string ReadStandardInput(std::size_t max_bytes, ExitCode code) {
  const std::string name = "standard input";
  std::string text;
  for (char part[1 << 16];;) {
    const ssize_t count = read(STDIN_FILENO, part, sizeof(part));
    if (count < 0 && errno == EINTR) {
      CheckInterruption();
      continue;
    }
    if (count < 0) {
      throw Failure(code, name + ": cannot be read: " + std::strerror(errno));
    }
    if (count == 0) {
      return AsText(name, std::move(text), code);
    }
    text.append(part, static_cast<std::size_t>(count));
    if (text.size() > max_bytes) {
      throw Failure(code, name + ": too large (at most " + std::to_string(max_bytes) + " bytes)");
    }
  }
}

std::string_view TakeLine(std::string_view* text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(line.size() + 1, text->size()));
  return line;
}

void SkipBlanks(std::string_view* text) {
  text->remove_prefix(std::min(text->find_first_not_of(" \t\r"), text->size()));
}

std::string Quoted(std::string_view text, std::size_t max_bytes) {
  std::string quoted = "'";
  quoted += Printable(text.substr(0, max_bytes));
  return quoted + (text.size() > max_bytes ? "...'" : "'");
}

}  // namespace kelda::tools
