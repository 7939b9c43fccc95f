#ifndef KELDA_TOOLS_COCKPIT_CPU_TIME_H_
#define KELDA_TOOLS_COCKPIT_CPU_TIME_H_

#include <atomic>
#include <cstdint>
#include <ctime>

namespace kelda::tools {

// Adds the processor time that this thread took since it did so last, or since it began.
inline void AddThreadCpu(std::atomic<uint64_t>* total_ns) {
  thread_local uint64_t before_ns = 0;
  constexpr uint64_t kSecond = 1'000'000'000;
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  const uint64_t now_ns =
      kSecond * static_cast<uint64_t>(now.tv_sec) + static_cast<uint64_t>(now.tv_nsec);
  total_ns->fetch_add(now_ns - before_ns, std::memory_order_relaxed);
  before_ns = now_ns;
}

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_CPU_TIME_H_
