#include "tools/core/standard_output.h"

#include <cstdio>

#include "tools/core/failure.h"
#include "tools/core/printable.h"

namespace kelda::tools {

void PrintToStandardOutput(const std::string& lines) {
  const std::string text = PrintableLines(lines);
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    throw Failure(ExitCode::kOutput, "standard output cannot be written");
  }
}

}  // namespace kelda::tools
