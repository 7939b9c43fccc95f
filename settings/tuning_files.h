// Reading of tuning files. Every call opens, reads and closes its file, so a file
// that was replaced on the device takes effect at the next call. Only a regular
// file is readable. Control thread.
#ifndef KELDA_SETTINGS_TUNING_FILES_H_
#define KELDA_SETTINGS_TUNING_FILES_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "settings/upmix_types.h"

namespace kelda {

// A regular file, open for reading; a pipe or a device is refused without waiting for it.
class ReadableFile {
 public:
  explicit ReadableFile(const std::string& path);
  ReadableFile(const ReadableFile&) = delete;
  ReadableFile& operator=(const ReadableFile&) = delete;
  ~ReadableFile();

  // False if the path cannot be opened or is not a regular file.
  bool IsOpen() const { return descriptor_ >= 0; }
  // Reads the next bytes into `to`, `bytes` at most, and returns how many: fewer only at
  // the end of the file, after an error, or if no file is open.
  std::size_t Read(char* to, std::size_t bytes);

 private:
  int descriptor_;
};

// The longest text that is used: of a configuration file only the first bytes are read, of an
// application list longer lines are skipped.
inline constexpr std::size_t kLongestTextBytes = 4096;

class BinFileReader {
 public:
  // What follows the last '/', or all of `path` if there is none.
  static std::string GetBasename(const std::string& path);
  // The same, as a pointer into `path`: for messages, as it allocates nothing.
  static const char* Basename(const std::string& path);
};

class ConfigFileReader {
 public:
  // The first line of the file, untrimmed and without its newline, or as much of it as
  // lies in the first kLongestTextBytes; empty if `path` is empty or, with a warning, if
  // the file cannot be opened.
  static std::string GetParamFilename(const std::string& path);
};

class ParamFileReader {
 public:
  // Reads a binary file into `out` from its first byte on and returns the number
  // of bytes, 0 on failure. A vector that is smaller than the file grows to the file's
  // size, up to `max_size`; a file beyond that is refused. A vector that is large enough
  // keeps its size, and its bytes after the end of the file stay as they were.
  static uint32_t GetParamData(const std::string& path, std::vector<char>* out, uint32_t max_size);
};

// The HRTF that a configuration file names in its first token; Standard if it
// names none in the first kLongestTextBytes or cannot be opened.
HrtfType GetHrtfType(const std::string& path);

}  // namespace kelda

#endif  // KELDA_SETTINGS_TUNING_FILES_H_
