// Counts the allocations of this process, and makes one fail. Replaces operator new
// for the whole program, the library under test included, and, unless a sanitizer
// has its own, malloc and its family.
#ifndef KELDA_TESTS_LABORATORY_ALLOCATIONS_H_
#define KELDA_TESTS_LABORATORY_ALLOCATIONS_H_

#include <cstdint>

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KELDA_COUNTS_MALLOC
#endif

namespace kelda::test {

// Calls of operator new and of malloc's family since the process began.
uint64_t NewCalls();
uint64_t MallocCalls();
// Blocks from operator new that were not deleted.
int64_t LiveBlocks();
// The `n`th call of operator new from now, from 1, throws std::bad_alloc; 0: none.
void FailNew(uint64_t n);
// While paused, calls of operator new are not counted and do not fail.
void PauseNew(bool paused);

}  // namespace kelda::test

#endif  // KELDA_TESTS_LABORATORY_ALLOCATIONS_H_
