// Stops a command cleanly on SIGINT, SIGTERM and SIGHUP.
#ifndef KELDA_TOOLS_CORE_INTERRUPTION_H_
#define KELDA_TOOLS_CORE_INTERRUPTION_H_

namespace kelda::tools {

// From now on SIGINT, SIGTERM and SIGHUP are only remembered, even if the parent process left them
// blocked. SIGPIPE and SIGXFSZ are ignored: the write that caused them returns an error instead.
void InstallSignalHandlers();

// Whether SIGINT, SIGTERM or SIGHUP has arrived.
bool InterruptionCame();

// Throws Interrupted if one of them has arrived.
void CheckInterruption();

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_INTERRUPTION_H_
