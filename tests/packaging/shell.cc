#include "tests/packaging/shell.h"

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace kelda::packaging {

ShellResult Shell(const std::string& command) {
  ShellResult result{-1, {}};
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  char piece[4096];
  while (const size_t bytes = std::fread(piece, 1, sizeof(piece), pipe)) {
    result.out.append(piece, bytes);
  }
  const int status = pclose(pipe);
  if (WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
  return result;
}

std::string ProjectPath(const std::string& path) { return KELDA_SOURCE_DIR "/" + path; }

std::string ProjectFile(const std::string& path) {
  std::ifstream file(ProjectPath(path), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kelda::packaging
