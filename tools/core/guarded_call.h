#ifndef KELDA_TOOLS_CORE_GUARDED_CALL_H_
#define KELDA_TOOLS_CORE_GUARDED_CALL_H_

#include <functional>
#include <string>

namespace kelda::tools {

// How a piece of work in a process of its own ended.
struct ChildEnd {
  bool returned;    // the work came to its end
  bool result;      // what it returned, if so
  std::string how;  // what happened, if not: "signal 11 (Segmentation fault)"
};

// Runs `work` in a child process, for code that may crash, hang or leave: after
// `limit_s` seconds it is ended. Standard output is shared, and flushed on both sides.
// Throws std::system_error if there can be no child, and Interrupted.
ChildEnd RunInChild(const std::function<bool()>& work, unsigned limit_s);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_GUARDED_CALL_H_
