#include "tools/core/replacement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/printable.h"

namespace kelda::tools {
namespace {

bool SaysYes(const std::string& question) {
  std::fputs(Printable(question).c_str(), stderr);
  std::fflush(stderr);
  std::string answer;
  std::getline(std::cin, answer);
  CheckInterruption();
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" || answer == "YES";
}

}  // namespace

void CheckReplacement(const std::filesystem::path& input, const std::filesystem::path& output,
                      bool replace) {
  struct stat out {};
  if (stat(output.c_str(), &out) != 0) {
    return;
  }
  struct stat in {};
  if (stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
    throw Failure(ExitCode::kUsage,
                  output.string() + ": it is the input itself, which is never replaced");
  }
  // Anything but a regular file is refused when it is opened.
  if (replace || !S_ISREG(out.st_mode)) {
    return;
  }
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) {
    throw Failure(ExitCode::kOutput, output.string() + ": it exists; -y replaces it");
  }
  if (!SaysYes("kelda: " + output.string() + " exists. Replace it? [y/N] ")) {
    throw Failure(ExitCode::kOutput, output.string() + ": it exists and stays as it is");
  }
}

}  // namespace kelda::tools
