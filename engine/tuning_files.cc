#include "engine/tuning_files.h"

#include <android/log.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>

namespace kelda {
namespace {

constexpr char kTag[] = "KelApUtil";
constexpr char kHrtfTag[] = "KelApVirCommon";

}  // namespace

FileHandle OpenForReading(const std::string& path) {
  // Asked before the open: opening a FIFO would block, and a directory opens.
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  return FileHandle(std::fopen(path.c_str(), "rb"));
}

std::optional<std::string> ReadText(const std::string& path) {
  const FileHandle file = OpenForReading(path);
  if (!file) return std::nullopt;
  std::string text;
  char block[4096];
  while (const std::size_t count = std::fread(block, 1, sizeof(block), file.get())) {
    text.append(block, count);
  }
  return text;
}

std::string BinFileReader::GetBasename(const std::string& path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

std::string ConfigFileReader::GetParamFilename(const std::string& path) {
  if (path.empty()) return {};
  const std::optional<std::string> text = ReadText(path);
  if (!text) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "%s file open error.", path.c_str());
    return {};
  }
  return text->substr(0, text->find('\n'));
}

uint32_t ParamFileReader::GetParamData(const std::string& path, std::vector<char>* out,
                                       uint32_t max_size) {
  struct stat status {};
  const int result = stat(path.c_str(), &status);
  if (result != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Unable to stat %s error code:%d\n", path.c_str(),
                        result);
    return 0;
  }
  const auto file_size = static_cast<uint64_t>(status.st_size);
  if (out->size() < file_size) {
    // The limit guards growth only: a vector that holds the file needs none.
    if (file_size > max_size) {
      __android_log_print(ANDROID_LOG_ERROR, kTag, "File %s is bigger than the maxSize %zu > %zu",
                          path.c_str(), static_cast<std::size_t>(file_size),
                          static_cast<std::size_t>(max_size));
      return 0;
    }
    out->resize(static_cast<std::size_t>(file_size));
  }
  const FileHandle file = OpenForReading(path);
  if (!file) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "%s file open error.", path.c_str());
    return 0;
  }
  // Bounded by the vector: the file may have grown since its size was asked.
  const std::size_t count = std::fread(out->data(), 1, out->size(), file.get());
  if (count < file_size) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "File %s read size is smaller than fileSize %zu < %zu", path.c_str(), count,
                        static_cast<std::size_t>(file_size));
    return 0;
  }
  return static_cast<uint32_t>(count);
}

HrtfType GetHrtfType(const std::string& path) {
  const std::optional<std::string> text = ReadText(path);
  if (!text) {
    __android_log_print(ANDROID_LOG_ERROR, kHrtfTag, "Failed to open ifstream");
    return HrtfType::Standard;
  }
  constexpr char kWhitespace[] = " \t\n\v\f\r";
  const std::size_t first = std::min(text->find_first_not_of(kWhitespace), text->size());
  const std::string token = text->substr(first, text->find_first_of(kWhitespace, first) - first);
  if (token == "speaker.hki") return HrtfType::Speaker;
  if (token == "standard.hki") return HrtfType::Standard;
  if (token == "personalized.hki") return HrtfType::Personalized;
  __android_log_print(ANDROID_LOG_ERROR, kHrtfTag, "Not matched any hrtf types: %s", token.c_str());
  return HrtfType::Standard;
}

}  // namespace kelda
