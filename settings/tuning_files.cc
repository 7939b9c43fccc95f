#include "settings/tuning_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/log.h"

namespace kelda {
namespace {

// The first kLongestTextBytes of a configuration file, or nothing if it cannot be opened.
std::optional<std::string> ReadConfig(const std::string& path) {
  ReadableFile file(path);
  if (!file.IsOpen()) {
    return std::nullopt;
  }
  std::string text(kLongestTextBytes, '\0');
  text.resize(file.Read(text.data(), text.size()));
  return text;
}

}  // namespace

// Opens the file before checking its type, so that the file that was checked is the one that is
// read.
ReadableFile::ReadableFile(const std::string& path)
    : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat status {};
  if (IsOpen() && (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode))) {
    close(std::exchange(descriptor_, -1));
  }
}

ReadableFile::~ReadableFile() {
  if (IsOpen()) {
    close(descriptor_);
  }
}

std::size_t ReadableFile::Read(char* to, std::size_t bytes) {
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t count = read(descriptor_, to + done, bytes - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::string BinFileReader::GetBasename(const std::string& path) { return Basename(path); }

const char* BinFileReader::Basename(const std::string& path) {
  return path.c_str() + (path.rfind('/') + 1);  // npos + 1 is 0
}

std::string ConfigFileReader::GetParamFilename(const std::string& path) {
  if (path.empty()) {
    return {};
  }
  const std::optional<std::string> text = ReadConfig(path);
  if (!text) {
    LogWarning(log_tag::kTuningFile, "%s file open error.", path.c_str());
    return {};
  }
  return text->substr(0, text->find('\n'));
}

uint32_t ParamFileReader::GetParamData(const std::string& path, std::vector<char>* out,
                                       uint32_t max_size) {
  struct stat status {};
  const int result = stat(path.c_str(), &status);
  if (result != 0) {
    LogError(log_tag::kTuningFile, "Unable to stat %s error code:%d\n", path.c_str(), result);
    return 0;
  }
  const auto file_size = static_cast<uint64_t>(status.st_size);
  if (out->size() < file_size) {
    // The limit applies to growth only: a vector that can hold the file need not grow.
    if (file_size > max_size) {
      LogError(log_tag::kTuningFile, "File %s is bigger than the maxSize %zu > %zu", path.c_str(),
               static_cast<std::size_t>(file_size), static_cast<std::size_t>(max_size));
      return 0;
    }
    out->resize(static_cast<std::size_t>(file_size));
  }
  ReadableFile file(path);
  if (!file.IsOpen()) {
    LogError(log_tag::kTuningFile, "%s file open error.", path.c_str());
    return 0;
  }
  // Not more than the vector holds: the file may have grown since its size was read.
  const std::size_t count = file.Read(out->data(), out->size());
  if (count < file_size) {
    LogError(log_tag::kTuningFile, "File %s read size is smaller than fileSize %zu < %zu",
             path.c_str(), count, static_cast<std::size_t>(file_size));
    return 0;
  }
  return static_cast<uint32_t>(count);
}

HrtfType GetHrtfType(const std::string& path) {
  const std::optional<std::string> text = ReadConfig(path);
  if (!text) {
    LogError(log_tag::kHrtf, "Failed to open ifstream");
    return HrtfType::Standard;
  }
  constexpr char kWhitespace[] = " \t\n\v\f\r";
  const std::size_t first = std::min(text->find_first_not_of(kWhitespace), text->size());
  const std::string token = text->substr(first, text->find_first_of(kWhitespace, first) - first);
  if (token == "speaker.hki") {
    return HrtfType::Speaker;
  }
  if (token == "standard.hki") {
    return HrtfType::Standard;
  }
  if (token == "personalized.hki") {
    return HrtfType::Personalized;
  }
  LogError(log_tag::kHrtf, "Not matched any hrtf types: %s", token.c_str());
  return HrtfType::Standard;
}

}  // namespace kelda
