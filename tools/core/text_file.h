// Text that the user wrote: read whole, taken apart into lines, quoted.
#ifndef KELDA_TOOLS_CORE_TEXT_FILE_H_
#define KELDA_TOOLS_CORE_TEXT_FILE_H_

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "tools/core/failure.h"

namespace kelda::tools {

// Why `path` cannot be opened as a regular file, or empty if it can.
std::string WhyUnreadable(const std::filesystem::path& path);

// Reads a regular file of at most `max_bytes`, byte for byte. Throws Failure with `code`.
std::string ReadWholeFile(const std::filesystem::path& path, std::size_t max_bytes,
                          ExitCode code = ExitCode::kInput);

// Likewise, but takes a UTF-8 byte order mark off and refuses what is no text of a byte
// encoding: other byte order marks, and NUL bytes.
std::string ReadTextFile(const std::filesystem::path& path, std::size_t max_bytes,
                         ExitCode code = ExitCode::kInput);

// Takes the first line off the front of `*text`, with its line end, and returns it without. The
// last line needs no line end; an empty text has no line.
std::string_view TakeLine(std::string_view* text);

// `text` between quotes, cut to `max_bytes` and Printable: for messages.
std::string Quoted(std::string_view text, std::size_t max_bytes = 40);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_TEXT_FILE_H_
