#include "tools/core/text_file.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "tools/core/file_problems.h"
#include "tools/core/printable.h"
#include "upmix-lib/regular_file.h"

namespace kelda::tools {

using upmix_lib::RegularFile;

std::string ReadWholeFile(const std::filesystem::path& path, std::size_t max_bytes) {
  RegularFile file(path.string());
  switch (file.error()) {
    case RegularFile::Error::kNone:
      break;
    case RegularFile::Error::kMissing:
      throw FileFailure(path.string() + ": cannot be opened");
    case RegularFile::Error::kNotRegular:
      throw FileFailure(path.string() + ": not a regular file");
  }
  if (file.size_bytes() > max_bytes) {
    throw FileFailure(path.string() + ": too large (" + std::to_string(file.size_bytes()) +
                      " bytes, at most " + std::to_string(max_bytes) + ")");
  }
  std::string bytes(static_cast<std::size_t>(file.size_bytes()), '\0');
  if (file.Read(std::as_writable_bytes(std::span(bytes))) != std::ssize(bytes)) {
    throw FileFailure(path.string() + ": cannot be read");
  }
  return bytes;
}

std::string ReadTextFile(const std::filesystem::path& path, std::size_t max_bytes) {
  std::string text = ReadWholeFile(path, max_bytes);
  if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
  if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF")) {
    throw FileFailure(path.string() + ": in UTF-16; save it as UTF-8");
  }
  if (const std::size_t at = text.find('\0'); at != std::string::npos) {
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<long>(at), '\n');
    throw FileFailure(path.string() + ":" + std::to_string(line) +
                      ": not a text file (it holds a NUL byte)");
  }
  return text;
}

std::string Quoted(std::string_view text, std::size_t max_bytes) {
  std::string quoted = "'";
  quoted += Printable(text.substr(0, max_bytes));
  return quoted + (text.size() > max_bytes ? "...'" : "'");
}

}  // namespace kelda::tools
