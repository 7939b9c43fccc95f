// What a command answers.
#ifndef KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_
#define KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_

#include <string>

namespace kelda::tools {

// Prints `lines`, control characters in them as text. A reader that has closed its end of a
// pipe, as `head` does, wants no more: that is no failure. Throws Failure (output) if the disk
// is full, and Interrupted.
void PrintToStandardOutput(const std::string& lines);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_STANDARD_OUTPUT_H_
