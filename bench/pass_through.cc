// What the effect costs while the upmix is off, compared with memory copies of the host's
// block. The library is called through its record, as the framework does.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <cutils/properties.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "bench/against_copy.h"
#include "pipeline/cache_aligned.h"
#include "tests/laboratory/effect_client.h"

namespace {

using kelda::bench::Median;
using kelda::bench::Time;

// Arguments: frames of a host block; whether input and output are the same buffer, as
// they are where the framework runs an insert effect. In turn, and in batches, it times the
// effect, six memory copies in a chain, each from the buffer that the one before it filled, and
// copies between two buffers that stay in the first-level cache. Counters, medians over the
// batches:
//   chain_copies  the effect's time divided by that of a copy of the chain
//   copies        divided by that of a copy from cache to cache, as in the other benchmarks
// The time reported is that of a batch.
void PassThrough(benchmark::State& state) {
  constexpr int kBatch = 100;
  constexpr int kCopies = 6;
  const auto frames = static_cast<std::size_t>(state.range(0));
  // On cache lines, as the framework's buffers are: a few bytes off them a copy takes four
  // times as long.
  std::vector<kelda::CacheAlignedArray<float>> buffers;
  for (int i = 0; i <= kCopies; ++i) {
    buffers.push_back(kelda::MakeCacheAligned<float>(2 * frames));
  }
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  property_set("vendor.kelda.effect", "1");
  kelda::test::Effect effect;
  effect.Enable();
  float* const in = buffers[0].get();
  float* const out = buffers[state.range(1) != 0 ? 0 : kCopies].get();
  const auto process = [&] { effect.Process(in, out, frames); };
  const auto copy = [&](int from, int to) {
    std::memcpy(buffers[static_cast<std::size_t>(to)].get(),
                buffers[static_cast<std::size_t>(from)].get(), 2 * frames * sizeof(float));
    benchmark::ClobberMemory();
  };
  const auto copy_chain = [&] {
    for (int i = 0; i < kCopies; ++i) {
      copy(i, i + 1);
    }
  };
  Time(kBatch, process);
  std::vector<double> chain_copies;
  std::vector<double> copies;
  for ([[maybe_unused]] auto _ : state) {
    const double chain_time = Time(kBatch, copy_chain);
    const double process_time = Time(kBatch, process);
    const double copy_time = Time(kBatch, [&] { copy(0, kCopies); });
    chain_copies.push_back(process_time / chain_time * kCopies);
    copies.push_back(process_time / copy_time);
    state.SetIterationTime(process_time);
  }
  state.counters["chain_copies"] = Median(chain_copies);
  state.counters["copies"] = Median(copies);
}
BENCHMARK(PassThrough)
    ->ArgNames({"frames", "in_place"})
    ->ArgsProduct({{1024 /* one period: no rings */, 480, 960, 1920, 3840}, {1, 0}})
    ->UseManualTime();

}  // namespace
