#ifndef KELDA_TOOLS_COCKPIT_CPU_TIME_H_
#define KELDA_TOOLS_COCKPIT_CPU_TIME_H_

#include <atomic>
#include <cstdint>

#include "tools/core/clock.h"

namespace kelda::tools {

// Adds the processor time that this thread took since it did so last, or since it began.
inline void AddThreadCpu(std::atomic<uint64_t>* total_ns) {
  thread_local uint64_t before_ns = 0;
  const uint64_t now_ns = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
  total_ns->fetch_add(now_ns - before_ns, std::memory_order_relaxed);
  before_ns = now_ns;
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_CPU_TIME_H_
