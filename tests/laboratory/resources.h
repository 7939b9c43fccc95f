#ifndef KELDA_TESTS_LABORATORY_RESOURCES_H_
#define KELDA_TESTS_LABORATORY_RESOURCES_H_

#include <malloc.h>
#include <time.h>

#include <cstddef>

namespace kelda::test {

// Seconds of this thread, without those that other programs ran.
inline double ThreadSeconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Bytes of the heap in use; 0 where a sanitizer has its own.
inline std::size_t HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace kelda::test

#endif  // KELDA_TESTS_LABORATORY_RESOURCES_H_
