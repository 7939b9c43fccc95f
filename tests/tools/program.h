// Runs the built `kelda` as a user would.
#ifndef KELDA_TESTS_TOOLS_PROGRAM_H_
#define KELDA_TESTS_TOOLS_PROGRAM_H_

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/laboratory/temporary_folder.h"

namespace kelda::tools {

struct ProgramResult {
  int exit_code;  // 128 + signal if one killed it
  std::string out;
  std::string err;
  bool takes_lines = true;  // a terminal: whole ones with an echo, as a shell leaves it
};

struct ProgramSurroundings {
  std::map<std::string, std::string> environment{};  // added to the test's own
  std::optional<uint64_t> file_size_limit_bytes{};   // RLIMIT_FSIZE, as a disk that fills up
  bool terminal = false;                             // stdin and stderr are one
  std::string typed{};                               // at the terminal
  unsigned short terminal_columns = 80;
  bool closed_pipe = false;  // stdout is a pipe that nobody reads any more
  int pending_signal = 0;    // comes before the program can do anything
};

// The words of `text`, separated by blanks.
std::vector<std::string> Words(const std::string& text);

// A program that runs; Wait must be called.
class RunningProgram {
 public:
  explicit RunningProgram(const std::vector<std::string>& arguments,
                          const ProgramSurroundings& surroundings = {});
  void Signal(int signal) const;
  // Presses keys, with a terminal.
  void Type(const std::string& keys) const;
  // Reads what the terminal shows until `done` says so of all of it, for 20 s at most. Returns
  // whether it did.
  bool WaitUntil(const std::function<bool(const std::string& screen)>& done);
  const std::string& screen() const { return screen_; }
  ProgramResult Wait();

 private:
  TemporaryFolder folder_;
  int terminal_ = -1;
  std::string screen_;
  pid_t process_;
};

ProgramResult RunKelda(const std::vector<std::string>& arguments,
                       const ProgramSurroundings& surroundings = {});

// Runs it, which must succeed.
ProgramResult Succeed(const std::vector<std::string>& arguments);

// Runs it, which must end with the code, print nothing and say `message` among its errors.
void ExpectRefused(int exit_code, const std::string& message,
                   const std::vector<std::string>& arguments,
                   const ProgramSurroundings& surroundings = {});

}  // namespace kelda::tools

#endif  // KELDA_TESTS_TOOLS_PROGRAM_H_
