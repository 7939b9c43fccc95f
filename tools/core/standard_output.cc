#include "tools/core/standard_output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/printable.h"

namespace kelda::tools {

void PrintToStandardOutput(const std::string& lines) {
  CheckInterruption();
  const std::string text = PrintableLines(lines);
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (!written && errno != EPIPE) {
    throw Failure(ExitCode::kOutput,
                  std::string("standard output cannot be written: ") + std::strerror(errno));
  }
}

}  // namespace kelda::tools
