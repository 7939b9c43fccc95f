// Reading of tuning files. Every call opens, reads and closes its file, so a file
// that was replaced on the device takes effect at the next call. Only a regular
// file is readable. Control thread.
#ifndef KELDA_ENGINE_TUNING_FILES_H_
#define KELDA_ENGINE_TUNING_FILES_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/upmix_types.h"

namespace kelda {

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;

// Null if `path` cannot be opened or is not a regular file.
FileHandle OpenForReading(const std::string& path);

// The whole file, or nothing if it cannot be opened.
std::optional<std::string> ReadText(const std::string& path);

class BinFileReader {
 public:
  // What follows the last '/', or all of `path` if there is none.
  static std::string GetBasename(const std::string& path);
};

class ConfigFileReader {
 public:
  // The first line of the file, untrimmed and without its newline; empty if `path`
  // is empty or, with a warning, if the file cannot be opened.
  static std::string GetParamFilename(const std::string& path);
};

class ParamFileReader {
 public:
  // Reads a binary file into `out` from its first byte on and returns the number
  // of bytes, 0 on failure. A vector that holds fewer bytes than the file grows to
  // its size, to `max_size` at most; a vector that is large enough keeps its size,
  // and what the file does not reach in it stays.
  static uint32_t GetParamData(const std::string& path, std::vector<char>* out, uint32_t max_size);
};

// The HRTF that a configuration file names in its first token; Standard if it
// names none or cannot be opened.
HrtfType GetHrtfType(const std::string& path);

}  // namespace kelda

#endif  // KELDA_ENGINE_TUNING_FILES_H_
