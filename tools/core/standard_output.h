// What a command answers.
#ifndef KELDA_TOOLS_STANDARD_OUTPUT_H_
#define KELDA_TOOLS_STANDARD_OUTPUT_H_

#include <string>

namespace kelda::tools {

// Prints `lines` whole, control characters in them as text. Throws Failure (output) if the
// reader is gone or the disk full.
void PrintToStandardOutput(const std::string& lines);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_STANDARD_OUTPUT_H_
