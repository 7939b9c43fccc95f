// What the library's times are compared with: machines differ, ratios less so.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "upmix-lib/data_formats.h"

namespace kelda::upmix_lib {
namespace {

// One period of stereo, 8 KiB.
void MemoryCopy(benchmark::State& state) {
  const std::vector<float> in(2 * kBlockFrames, 0.5f);
  std::vector<float> out(in.size());
  for ([[maybe_unused]] auto _ : state) {
    std::memcpy(out.data(), in.data(), in.size() * sizeof(float));
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemoryCopy);

}  // namespace
}  // namespace kelda::upmix_lib
