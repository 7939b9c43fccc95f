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

// The same, but removes a UTF-8 byte order mark. Refuses files with another byte order mark or a
// NUL byte.
std::string ReadTextFile(const std::filesystem::path& path, std::size_t max_bytes,
                         ExitCode code = ExitCode::kInput);

// The same of standard input, to its end. Also throws Interrupted.
std::string ReadStandardInput(std::size_t max_bytes, ExitCode code = ExitCode::kInput);

// Removes the first line of `*text`, with its line end, and returns it without the line end. The
// last line needs no line end. An empty text has no lines.
std::string_view TakeLine(std::string_view* text);

// Removes blanks, tabs and carriage returns from the start of `*text`.
void SkipBlanks(std::string_view* text);

// `text` between quotes, cut to `max_bytes` and Printable: for messages.
std::string Quoted(std::string_view text, std::size_t max_bytes = 40);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_TEXT_FILE_H_
