#include "tests/tools/program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/tools/expectations.h"

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
  if (surroundings.closed_pipe) {
    int ends[2];
    if (pipe(ends) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0) {
      close(ends[0]);
      close(ends[1]);
    }
  }
  if (surroundings.pending_signal != 0) {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, surroundings.pending_signal);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    raise(surroundings.pending_signal);
  }
  std::vector<char*> argv{const_cast<char*>(KELDA_PROGRAM)};
  // Built for another processor: the program runs where this test runs, in an emulator.
  if constexpr (sizeof(KELDA_EMULATOR) > 1) {
    argv.insert(argv.begin(), const_cast<char*>(KELDA_EMULATOR));
  }
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  execvp(argv.front(), argv.data());
  _exit(127);
}

}  // namespace

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

RunningProgram::RunningProgram(const std::vector<std::string>& arguments,
                               const ProgramSurroundings& surroundings) {
  int program_side = -1;
  const winsize size{24, surroundings.terminal_columns, 0, 0};
  if (surroundings.terminal && openpty(&terminal_, &program_side, nullptr, nullptr, &size) != 0) {
    throw std::runtime_error("cannot open a terminal");
  }
  process_ = fork();
  if (process_ < 0) {
    throw std::runtime_error("cannot fork");
  }
  if (process_ == 0) {
    Redirect(folder_ / "out", STDOUT_FILENO);
    if (surroundings.terminal) {
      dup2(program_side, STDIN_FILENO);
      dup2(program_side, STDERR_FILENO);
      close(terminal_);
      close(program_side);
    } else {
      Redirect(folder_ / "err", STDERR_FILENO);
    }
    Execute(arguments, surroundings);
  }
  if (surroundings.terminal) {
    close(program_side);
    Type(surroundings.typed);
  }
}

void RunningProgram::Type(const std::string& keys) const {
  if (write(terminal_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    throw std::runtime_error("cannot type");
  }
}

bool RunningProgram::WaitUntil(const std::function<bool(const std::string& screen)>& done) {
  using Clock = std::chrono::steady_clock;
  for (const auto end = Clock::now() + std::chrono::seconds(20); Clock::now() < end;) {
    if (done(screen_)) {
      return true;
    }
    pollfd shown{terminal_, POLLIN, 0};
    if (constexpr int kLookMs = 20; poll(&shown, terminal_ < 0 ? 0 : 1, kLookMs) > 0) {
      char bytes[4096];
      const ssize_t count = read(terminal_, bytes, sizeof(bytes));
      screen_.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
  }
  return done(screen_);
}

void RunningProgram::Signal(int signal) const { kill(process_, signal); }

ProgramResult RunningProgram::Wait() {
  bool takes_lines = true;
  if (terminal_ >= 0) {
    char bytes[4096];
    for (ssize_t count = 0; (count = read(terminal_, bytes, sizeof(bytes))) > 0;) {
      screen_.append(bytes, static_cast<std::size_t>(count));
    }
    termios state{};
    takes_lines = tcgetattr(terminal_, &state) == 0 && (state.c_lflag & ICANON) != 0 &&
                  (state.c_lflag & ECHO) != 0;
    close(terminal_);
  }
  int status = 0;
  waitpid(process_, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), folder_.Read("out"),
          terminal_ >= 0 ? screen_ : folder_.Read("err"), takes_lines};
}

ProgramResult RunKelda(const std::vector<std::string>& arguments,
                       const ProgramSurroundings& surroundings) {
  return RunningProgram(arguments, surroundings).Wait();
}

ProgramResult Succeed(const std::vector<std::string>& arguments) {
  ProgramResult result = RunKelda(arguments);
  EXPECT_EQ(0, result.exit_code) << result.err;
  return result;
}

void ExpectRefused(int exit_code, const std::string& message,
                   const std::vector<std::string>& arguments,
                   const ProgramSurroundings& surroundings) {
  const ProgramResult result = RunKelda(arguments, surroundings);
  EXPECT_EQ(exit_code, result.exit_code) << message << "\n" << result.err;
  EXPECT_TRUE(Holds(result.err, message));
  EXPECT_EQ("", result.out) << message;
}

}  // namespace kelda::tools
