// Everything that is wrong with a file that the user wrote, in the form by which editors find a
// line.
#ifndef KELDA_TOOLS_CORE_FILE_PROBLEMS_H_
#define KELDA_TOOLS_CORE_FILE_PROBLEMS_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tools/core/failure.h"

namespace kelda::tools {

// A Failure whose message is whole lines "file:line: what is wrong", or "kelda: file: ..."
// about the file as a whole, without a line end after the last. It is printed as it is.
class FileFailure : public Failure {
 public:
  explicit FileFailure(const std::string& lines, ExitCode code = ExitCode::kInput)
      : Failure(code, lines) {}
};

class FileProblems {
 public:
  explicit FileProblems(std::string file) : file_(std::move(file)) {}

  // `line` counts from 1; 0: the file as a whole.
  void Add(std::size_t line, const std::string& what);

  bool empty() const { return count_ == 0; }
  std::size_t count() const { return count_; }
  // Twenty of the problems as lines, in the order of the file, and how many more there are. The
  // last line has no line end.
  std::string Text() const;
  // If there is a problem, throws FileFailure with the lines of `warnings` and then the problems.
  void ThrowIfAny(const std::string& warnings = "", ExitCode code = ExitCode::kInput) const;

 private:
  std::string file_;
  std::vector<std::pair<std::size_t, std::string>> shown_;
  std::size_t count_ = 0;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_FILE_PROBLEMS_H_
