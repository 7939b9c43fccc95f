#include "tools/core/interruption.h"

#include <csignal>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

volatile std::sig_atomic_t g_signal = 0;

void Remember(int signal) { g_signal = signal; }

}  // namespace

void InstallSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = Remember;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    sigaction(signal, &action, nullptr);
  }
}

void CheckInterruption() {
  if (g_signal != 0) {
    throw Interrupted(g_signal);
  }
}

}  // namespace kelda::tools
