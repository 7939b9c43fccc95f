// What a command prints on standard output.
#ifndef KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_
#define KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_

#include <string>

namespace kelda::tools {

// Prints `lines`, with control characters as text. It is no failure if the reader of a pipe has
// closed it, as `head` does. Throws Failure (output) if writing fails for another reason, such as a
// full disk, and Interrupted.
void PrintToStandardOutput(const std::string& lines);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_
