#ifndef KELDA_TESTS_LABORATORY_RESOURCES_H_
#define KELDA_TESTS_LABORATORY_RESOURCES_H_

#include <malloc.h>

#include <cstddef>

namespace kelda::test {

// Bytes of the heap in use; 0 where a sanitizer has its own.
inline std::size_t HeapBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

}  // namespace kelda::test

#endif  // KELDA_TESTS_LABORATORY_RESOURCES_H_
