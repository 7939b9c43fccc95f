// Stops a command cleanly on SIGINT, SIGTERM and SIGHUP.
#ifndef KELDA_TOOLS_CORE_INTERRUPTION_H_
#define KELDA_TOOLS_CORE_INTERRUPTION_H_

#include <csignal>

namespace kelda::tools {

// From now on SIGINT, SIGTERM and SIGHUP are only remembered, even if the parent process left them
// blocked. SIGPIPE and SIGXFSZ are ignored: the write that caused them returns an error instead.
void InstallSignalHandlers();

// Whether SIGINT, SIGTERM or SIGHUP has arrived.
bool InterruptionCame();

// Throws Interrupted if one of them has arrived.
void CheckInterruption();

// While it exists, signals wait. Threads that are started meanwhile never get one, so that they
// interrupt the main thread's waiting and nothing else.
class SignalsHeldBack {
 public:
  SignalsHeldBack();
  ~SignalsHeldBack();
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

 private:
  sigset_t before_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_INTERRUPTION_H_
