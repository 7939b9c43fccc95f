// Keeps instances that only measure out of the log, and keeps them from capturing.
#ifndef KELDA_TOOLS_FRAMEWORK_SIDE_INSTANCE_H_
#define KELDA_TOOLS_FRAMEWORK_SIDE_INSTANCE_H_

#include <cstdint>

namespace kelda::tools {

// While it exists, the effect logs nothing and starts no PCM capture. Otherwise a measuring
// instance would repeat the messages of the rendering instance, and write to the same capture file.
// At most one exists at a time.
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
