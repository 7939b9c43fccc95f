// How a command of `kelda` fails: an exit code and a message for the user.
#ifndef KELDA_TOOLS_CORE_FAILURE_H_
#define KELDA_TOOLS_CORE_FAILURE_H_

#include <exception>
#include <stdexcept>
#include <string>

namespace kelda::tools {

enum class ExitCode {
  kSuccess = 0,
  kUnexpected = 1,  // out of memory and the like
  kUsage = 2,       // wrong arguments, settings or timeline
  kInput = 3,       // the input cannot be read
  kOutput = 4,      // the output cannot be written
  kLibrary = 5,     // no usable effect library
  kRefused = 6,     // the effect refused a command or a block of audio
  kIncomplete = 7,  // done, but the input ended early
};

// The text that every command's help ends with.
inline constexpr const char* kExitCodeHelp =
    "Exit codes:\n"
    "  0 done                       4 output cannot be written\n"
    "  1 unexpected failure         5 effect library cannot be used\n"
    "  2 wrong usage                6 effect refused a command\n"
    "  3 input cannot be read       7 done, but the input ended early\n"
    "  130, 143 interrupted (SIGINT, SIGTERM)\n";

class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// Thrown after a signal asked the program to stop, so that destructors clean up.
class Interrupted : public std::exception {
 public:
  explicit Interrupted(int signal) : signal_(signal) {}
  const char* what() const noexcept override { return "interrupted"; }
  int exit_code() const { return 128 + signal_; }

 private:
  int signal_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_FAILURE_H_
