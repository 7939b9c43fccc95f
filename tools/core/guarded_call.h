#ifndef KELDA_TOOLS_CORE_GUARDED_CALL_H_
#define KELDA_TOOLS_CORE_GUARDED_CALL_H_

#include <functional>
#include <string>

namespace kelda::tools {

// How work that ran in a child process ended.
struct ChildEnd {
  bool returned;    // whether the work returned
  bool result;      // what it returned, if so
  std::string how;  // what happened, if not: "signal 11 (Segmentation fault)"
};

// Runs `work` in a child process, because it may crash, hang or call exit(). Ends the child after
// `limit_s` seconds. Both processes print to the same standard output and flush it. Throws
// std::system_error if no child can be started, and Interrupted.
ChildEnd RunInChild(const std::function<bool()>& work, unsigned limit_s);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_GUARDED_CALL_H_
