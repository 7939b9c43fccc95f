#ifndef KELDA_PIPELINE_CACHE_ALIGNED_H_
#define KELDA_PIPELINE_CACHE_ALIGNED_H_

#include <cstddef>
#include <memory>
#include <new>

namespace kelda {

// Arrays of audio start on a cache line. Otherwise the distance between two that were
// allocated one after the other is a few bytes off a multiple of the page size, and the
// processor makes loads wait for unrelated stores: a copy then takes four times as long.
inline constexpr std::align_val_t kCacheLine{64};

struct CacheAlignedDelete {
  void operator()(void* array) const { ::operator delete[](array, kCacheLine); }
};

template <typename T>
using CacheAlignedArray = std::unique_ptr<T[], CacheAlignedDelete>;

// `size` elements, all zero. Throws std::bad_alloc.
template <typename T>
CacheAlignedArray<T> MakeCacheAligned(std::size_t size) {
  return CacheAlignedArray<T>(new (kCacheLine) T[size]());
}

}  // namespace kelda

#endif  // KELDA_PIPELINE_CACHE_ALIGNED_H_
