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
  sigset_t remembered;
  sigemptyset(&remembered);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaction(signal, &action, nullptr);
    sigaddset(&remembered, signal);
  }
  sigprocmask(SIG_UNBLOCK, &remembered, nullptr);
  action.sa_handler = SIG_IGN;
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    sigaction(signal, &action, nullptr);
  }
}

bool InterruptionCame() { return g_signal != 0; }

void CheckInterruption() {
  if (g_signal != 0) {
    throw Interrupted(g_signal);
  }
}

SignalsHeldBack::SignalsHeldBack() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

SignalsHeldBack::~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace kelda::tools
