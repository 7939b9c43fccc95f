// Stops a command cleanly on SIGINT, SIGTERM and SIGHUP.
#ifndef KELDA_TOOLS_CORE_INTERRUPTION_H_
#define KELDA_TOOLS_CORE_INTERRUPTION_H_

namespace kelda::tools {

// From here on those signals, also if the parent left them blocked, are only remembered. SIGPIPE
// and SIGXFSZ are ignored, so that the write which met them reports an error instead.
void InstallSignalHandlers();

// Whether one of the signals came.
bool InterruptionCame();

// Throws Interrupted if one of the signals came.
void CheckInterruption();

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_INTERRUPTION_H_
