// Keeps instances of the effect that only measure out of sight.
#ifndef KELDA_TOOLS_FRAMEWORK_SIDE_INSTANCE_H_
#define KELDA_TOOLS_FRAMEWORK_SIDE_INSTANCE_H_

#include <cstdint>

namespace kelda::tools {

// While it lives, the effect logs nothing and starts no PCM capture: a measuring
// instance would repeat the messages of the one that renders, and write into a
// capture file of the same name. Not nested.
class SideInstanceScope {
 public:
  SideInstanceScope();
  ~SideInstanceScope();
  SideInstanceScope(const SideInstanceScope&) = delete;
  SideInstanceScope& operator=(const SideInstanceScope&) = delete;

 private:
  int32_t log_priority_;
  int32_t capture_seconds_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_SIDE_INSTANCE_H_
