// The level control, per period of 1024 stereo frames.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "tests/laboratory/signals.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_control.h"

namespace kelda::upmix_lib {
namespace {

// Noise of range(0) percent of full scale: below the ceiling, and limited all the time.
void LevelControlBlock(benchmark::State& state) {
  const auto control =
      std::make_unique<LevelControl>(DefaultParameters<LevelParameters>(kLevelKind, kLevelFields));
  const float amplitude = static_cast<float>(state.range(0)) / 100;
  constexpr std::size_t kBlocks = 16;
  const std::vector<float> in = Noise(2 * kBlocks * kBlockFrames, 1, amplitude);
  std::vector<float> out(2 * kBlockFrames);
  std::size_t block = 0;
  for ([[maybe_unused]] auto _ : state) {
    control->Process(&in[2 * kBlockFrames * (block++ % kBlocks)], out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(LevelControlBlock)->Arg(5)->Arg(400);

void LoudnessMeterBlock(benchmark::State& state) {
  LoudnessMeter meter(30);
  const std::vector<float> in(2 * kBlockFrames, 0.1f);
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(meter.Process(in.data(), kBlockFrames, false));
  }
}
BENCHMARK(LoudnessMeterBlock);

void LimiterBlock(benchmark::State& state) {
  Limiter limiter(-1, 80);
  std::vector<float> out(2 * kBlockFrames);
  std::fill_n(limiter.input(), out.size(), 0.1f);
  for ([[maybe_unused]] auto _ : state) {
    limiter.Process(out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(LimiterBlock);

}  // namespace
}  // namespace kelda::upmix_lib
