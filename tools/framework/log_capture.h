// Keeps what the effect logs instead of showing it.
#ifndef KELDA_TOOLS_FRAMEWORK_LOG_CAPTURE_H_
#define KELDA_TOOLS_FRAMEWORK_LOG_CAPTURE_H_

#include <string>
#include <vector>

namespace kelda::tools {

struct LogLine {
  int priority;  // android_LogPriority
  std::string tag;
  std::string message;
};

// While it exists, it keeps the warnings and errors that are logged. At most one exists at a time,
// and one thread uses it. Its destructor restores the status line's logger and the lowest priority
// that is logged.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  // The lines since the last call.
  std::vector<LogLine> Take();

 private:
  int priority_;  // android_LogPriority, as it was before
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_LOG_CAPTURE_H_
