#include "tests/tools/program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace kelda::tools {
namespace {

void Redirect(const std::string& file, int descriptor) {
  dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), descriptor);
}

[[noreturn]] void Execute(const std::vector<std::string>& arguments,
                          const ProgramSurroundings& surroundings) {
  for (const auto& [name, value] : surroundings.environment) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  if (surroundings.file_size_limit_bytes) {
    const rlimit limit{*surroundings.file_size_limit_bytes, *surroundings.file_size_limit_bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  std::vector<char*> argv{const_cast<char*>(KELDA_PROGRAM)};
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  execv(KELDA_PROGRAM, argv.data());
  _exit(127);
}

}  // namespace

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

RunningProgram::RunningProgram(const std::vector<std::string>& arguments,
                               const ProgramSurroundings& surroundings)
    : process_(fork()) {
  if (process_ < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (process_ == 0) {
    Redirect(folder_ / "out", STDOUT_FILENO);
    Redirect(folder_ / "err", STDERR_FILENO);
    Execute(arguments, surroundings);
  }
}

void RunningProgram::Signal(int signal) const { kill(process_, signal); }

ProgramResult RunningProgram::Wait() {
  int status = 0;
  waitpid(process_, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), folder_.Read("out"),
          folder_.Read("err")};
}

ProgramResult RunKelda(const std::vector<std::string>& arguments,
                       const ProgramSurroundings& surroundings) {
  return RunningProgram(arguments, surroundings).Wait();
}

}  // namespace kelda::tools
