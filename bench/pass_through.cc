// What the effect costs while the upmix is off, in memory copies of the host's
// block: through the library's own record, as the framework calls it.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <cutils/properties.h>
#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bench/against_copy.h"
#include "pipeline/cache_aligned.h"

extern "C" audio_effect_library_t AELI;

namespace {

using kelda::bench::Median;
using kelda::bench::Time;

constexpr audio_uuid_t kUuid = {
    0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};

effect_handle_t CreateEnabled() {
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  property_set("vendor.kelda.effect", "1");
  effect_handle_t effect = nullptr;
  if (AELI.create_effect(&kUuid, 0, 0, &effect) != 0) return nullptr;
  int32_t status = 0;
  uint32_t status_size = sizeof(status);
  (*effect)->command(effect, EFFECT_CMD_ENABLE, 0, nullptr, &status_size, &status);
  return effect;
}

// Arguments: frames a host block; whether input and output are the same buffer, as
// they are where the framework runs an insert effect. Timed in turn, in batches, are the effect and
// six memory copies of the block, each from the buffer that the one before it filled. Counters,
// medians over the batches:
//   copies      the effect's time in such copies
//   hot_copies  the same in copies that do nothing but go from one buffer that is in
//               the first-level cache to another: no memory access costs less
// The time reported is that of a batch.
void PassThrough(benchmark::State& state) {
  constexpr int kBatch = 100;
  constexpr int kCopies = 6;
  const auto frames = static_cast<std::size_t>(state.range(0));
  // On cache lines, as the framework's buffers are: a few bytes off, a copy takes
  // four times as long.
  std::vector<kelda::CacheAlignedArray<float>> buffers;
  for (int i = 0; i <= kCopies; ++i) buffers.push_back(kelda::MakeCacheAligned<float>(2 * frames));
  effect_handle_t effect = CreateEnabled();
  if (effect == nullptr) {
    state.SkipWithError("cannot create the effect");
    return;
  }
  audio_buffer_t in{frames, {buffers[0].get()}};
  audio_buffer_t out{frames, {buffers[state.range(1) != 0 ? 0 : kCopies].get()}};
  const auto process = [&] { (*effect)->process(effect, &in, &out); };
  const auto copy = [&](int from, int to) {
    std::memcpy(buffers[static_cast<std::size_t>(to)].get(),
                buffers[static_cast<std::size_t>(from)].get(), 2 * frames * sizeof(float));
    benchmark::ClobberMemory();
  };
  const auto copy_chain = [&] {
    for (int i = 0; i < kCopies; ++i) copy(i, i + 1);
  };
  Time(kBatch, process);
  std::vector<double> copies;
  std::vector<double> hot_copies;
  for ([[maybe_unused]] auto _ : state) {
    const double chain_time = Time(kBatch, copy_chain);
    const double process_time = Time(kBatch, process);
    const double hot_time = Time(kBatch, [&] { copy(0, kCopies); });
    copies.push_back(process_time / chain_time * kCopies);
    hot_copies.push_back(process_time / hot_time);
    state.SetIterationTime(process_time);
  }
  state.counters["copies"] = Median(copies);
  state.counters["hot_copies"] = Median(hot_copies);
  AELI.release_effect(effect);
}
BENCHMARK(PassThrough)
    ->ArgNames({"frames", "in_place"})
    ->ArgsProduct({{1024 /* one period: no rings */, 480, 960, 1920, 3840}, {1, 0}})
    ->UseManualTime();

}  // namespace
