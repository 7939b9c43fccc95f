#ifndef KELDA_TOOLS_CORE_CLOCK_H_
#define KELDA_TOOLS_CORE_CLOCK_H_

#include <time.h>

#include <cstdint>

namespace kelda::tools {

// What a clock of the system shows, such as CLOCK_MONOTONIC, or CLOCK_THREAD_CPUTIME_ID for the
// processor time of the calling thread. Asking does not wait. Any thread.
inline uint64_t Nanoseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  constexpr uint64_t kPerSecond = 1'000'000'000;
  return kPerSecond * static_cast<uint64_t>(now.tv_sec) + static_cast<uint64_t>(now.tv_nsec);
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_CORE_CLOCK_H_
