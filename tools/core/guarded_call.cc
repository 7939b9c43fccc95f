#include "tools/core/guarded_call.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <system_error>

#include "tools/core/interruption.h"
#include "tools/core/printable.h"

namespace kelda::tools {
namespace {

// Exit codes that a library which calls exit() is unlikely to choose.
constexpr int kTrue = 113;
constexpr int kFalse = 114;

[[noreturn]] void Child(const std::function<bool()>& work, unsigned limit_s) {
  for (const int signal :
       {SIGALRM, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, SIG_DFL);
  }
  alarm(limit_s);
  bool result = false;
  try {
    result = work();
  } catch (const std::exception& exception) {
    std::printf("  an exception came through the interface: %s\n",
                Printable(exception.what()).c_str());
  }
  std::fflush(stdout);
  _exit(result ? kTrue : kFalse);
}

}  // namespace

ChildEnd RunInChild(const std::function<bool()>& work, unsigned limit_s) {
  CheckInterruption();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start a process");
  }
  if (child == 0) {
    Child(work, limit_s);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    if (InterruptionCame()) {
      kill(child, SIGKILL);
    }
  }
  CheckInterruption();
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return {false, false,
            signal == SIGALRM
                ? "no return within " + std::to_string(limit_s) + " s"
                : "signal " + std::to_string(signal) + " (" + strsignal(signal) + ")"};
  }
  const int code = WEXITSTATUS(status);
  if (code != kTrue && code != kFalse) {
    return {false, false, "the process was left with exit code " + std::to_string(code)};
  }
  return {true, code == kTrue, ""};
}

}  // namespace kelda::tools
