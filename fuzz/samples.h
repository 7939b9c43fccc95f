// Blocks of audio for fuzz targets.
#ifndef KELDA_FUZZ_SAMPLES_H_
#define KELDA_FUZZ_SAMPLES_H_

#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <span>

#include "fuzz/byte_reader.h"

namespace kelda::fuzz {

// Floats on the heap with nothing after them, so that a sanitizer sees every access beyond the
// end. The address is valid for every count, also for 0.
struct Samples {
  explicit Samples(std::size_t count) : memory(new float[count]()), size(count) {}
  float* data() const { return memory.get(); }
  std::span<float> span() const { return {data(), size}; }

  std::unique_ptr<float[]> memory;
  std::size_t size;
};

// Fills `samples` with a signal that the input chooses. Returns whether it is sound, which here
// means noise or silence of at most full scale.
inline bool Fill(const Samples& samples, ByteReader* input) {
  using Limits = std::numeric_limits<float>;
  constexpr float kLevels[] = {0.5f, 0.0f, 1.0f, 1e-20f};
  constexpr float kBad[] = {Limits::quiet_NaN(),
                            Limits::infinity(),
                            Limits::denorm_min(),
                            Limits::max(),
                            -1e-39f,
                            -65536.5f};
  const float level = input->OneOf(kLevels);
  auto state = input->Take<uint32_t>();
  for (float& sample : samples.span()) {
    state = state * 1664525u + 1013904223u;
    sample = level * static_cast<float>(static_cast<int32_t>(state)) / 0x1p31f;
  }
  const std::size_t spots = input->Below(8);
  for (std::size_t i = 0; i < spots && samples.size > 0; ++i) {
    samples.data()[input->Take<uint16_t>() % samples.size] = input->OneOf(kBad);
  }
  return spots == 0;
}

inline void TrapUnlessFinite(const Samples& samples) {
  for (const float sample : samples.span()) {
    if (!std::isfinite(sample)) {
      __builtin_trap();
    }
  }
}

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_SAMPLES_H_
