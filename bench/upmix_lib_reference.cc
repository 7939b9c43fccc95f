// What the library's times are compared with, because ratios differ less between machines.
#include <benchmark/benchmark.h>

#include <cstring>

#include "bench/against_copy.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda::upmix_lib {
namespace {

// One period of stereo, 8 KiB.
void MemoryCopy(benchmark::State& state) {
  bench::BufferPair buffers(2 * kBlockFrames);
  for ([[maybe_unused]] auto _ : state) {
    std::memcpy(buffers.to(), buffers.from(), 2 * kBlockFrames * sizeof(float));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemoryCopy);

}  // namespace
}  // namespace kelda::upmix_lib
