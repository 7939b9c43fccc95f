#ifndef KELDA_TOOLS_LIVE_DEFAULT_SINK_H_
#define KELDA_TOOLS_LIVE_DEFAULT_SINK_H_

#include <sys/types.h>

#include <string>

namespace kelda::tools {

// While it exists, a sink is the desktop's default. A child process makes it so, and puts the old
// default back when this process ends, however it ends: it sees that a pipe is closed. What the
// user has chosen meanwhile stays.
class DefaultSink {
 public:
  // Starts the child, so before any thread. Throws Failure (output) if the server or the session
  // manager, which keeps the default, is not there, std::system_error, and Interrupted.
  explicit DefaultSink(const std::string& node_name);
  // Waits until the old default is back.
  ~DefaultSink();
  DefaultSink(const DefaultSink&) = delete;
  DefaultSink& operator=(const DefaultSink&) = delete;

  // The node's name that was the default; empty if there was none.
  const std::string& before() const { return before_; }

 private:
  pid_t child_ = -1;
  int pipe_ = -1;
  std::string before_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_DEFAULT_SINK_H_
