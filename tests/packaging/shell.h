// Runs the tools that judge the packaging files.
#ifndef KELDA_TESTS_PACKAGING_SHELL_H_
#define KELDA_TESTS_PACKAGING_SHELL_H_

#include <string>

namespace kelda::packaging {

struct ShellResult {
  int exit_code;    // -1 if a signal ended it
  std::string out;  // standard output and error
};

ShellResult Shell(const std::string& command);

// A file of the project, whole; empty if it cannot be read.
std::string ProjectFile(const std::string& path);
// Where it is.
std::string ProjectPath(const std::string& path);

}  // namespace kelda::packaging

#endif  // KELDA_TESTS_PACKAGING_SHELL_H_
