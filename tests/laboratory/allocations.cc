#include "tests/laboratory/allocations.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<uint64_t> g_new_calls{0};
std::atomic<uint64_t> g_malloc_calls{0};
std::atomic<int64_t> g_live_blocks{0};
std::atomic<uint64_t> g_fail_in{0};
std::atomic<bool> g_paused{false};

void* New(std::size_t bytes, std::size_t alignment) {
  if (!g_paused) {
    ++g_new_calls;
    if (g_fail_in != 0 && --g_fail_in == 0) {
      throw std::bad_alloc();
    }
  }
  void* block = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    block = std::malloc(bytes == 0 ? 1 : bytes);
  } else if (posix_memalign(&block, alignment, bytes) != 0) {
    block = nullptr;
  }
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  ++g_live_blocks;
  return block;
}

void Delete(void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  --g_live_blocks;
  std::free(block);
}

}  // namespace

namespace kelda::test {

uint64_t NewCalls() { return g_new_calls; }
uint64_t MallocCalls() { return g_malloc_calls; }
int64_t LiveBlocks() { return g_live_blocks; }
void FailNew(uint64_t n) { g_fail_in = n; }
void PauseNew(bool paused) { g_paused = paused; }

}  // namespace kelda::test

// The library's own for arrays call these.
void* operator new(std::size_t bytes) { return New(bytes, 0); }
void* operator new(std::size_t bytes, std::align_val_t a) {
  return New(bytes, static_cast<std::size_t>(a));
}
void operator delete(void* block) noexcept { Delete(block); }
void operator delete(void* block, std::size_t) noexcept { Delete(block); }
void operator delete(void* block, std::align_val_t) noexcept { Delete(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { Delete(block); }

#ifdef KELDA_COUNTS_MALLOC
#pragma GCC visibility push(default)
extern "C" {

// The C library's own, under the names that it keeps for replacements like these.
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);

void* malloc(std::size_t bytes) {
  ++g_malloc_calls;
  return __libc_malloc(bytes);
}
void* calloc(std::size_t count, std::size_t bytes) {
  ++g_malloc_calls;
  return __libc_calloc(count, bytes);
}
void* realloc(void* block, std::size_t bytes) {
  ++g_malloc_calls;
  return __libc_realloc(block, bytes);
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
  ++g_malloc_calls;
  return __libc_memalign(alignment, bytes);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
  ++g_malloc_calls;
  *block = __libc_memalign(alignment, bytes);
  return *block != nullptr ? 0 : ENOMEM;
}
}
#pragma GCC visibility pop
#endif
