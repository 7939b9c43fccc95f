// A fixed-size array of floats whose address suits the vector kernels.
#ifndef KELDA_UPMIX_LIB_BASE_ALIGNED_BUFFER_H_
#define KELDA_UPMIX_LIB_BASE_ALIGNED_BUFFER_H_

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "upmix-lib/base/simd.h"

namespace kelda::upmix_lib {

// Owns `size` floats, zero at first, aligned to kSimdAlignmentBytes. Allocates in
// the constructor only (control thread).
class AlignedBuffer {
 public:
  AlignedBuffer() = default;
  explicit AlignedBuffer(std::size_t size)
      : size_(size),
        floats_(static_cast<float*>(::operator new(size * sizeof(float), kAlignment))) {
    Clear();
  }

  void Clear() { std::fill_n(floats_.get(), size_, 0.0f); }

  float* data() { return floats_.get(); }
  const float* data() const { return floats_.get(); }
  std::size_t size() const { return size_; }

 private:
  static constexpr std::align_val_t kAlignment{kSimdAlignmentBytes};
  struct Free {
    void operator()(float* floats) const { ::operator delete(floats, kAlignment); }
  };

  std::size_t size_ = 0;
  std::unique_ptr<float[], Free> floats_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_ALIGNED_BUFFER_H_
