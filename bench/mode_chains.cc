// What a period costs in each mode's whole chain with the default tuning. The library is
// called through its record, as the framework does.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <cutils/properties.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/signals.h"

namespace {

constexpr std::size_t kPeriod = 1024;

// Arguments: the mode (0 off, 1 music, 2 cinema); whether the ears are personalized, so
// that the headphone equalizer runs; whether it plays silence, after noise that has faded away
// and a minute in which all stages have come to rest. Silence costs next to nothing. Counter:
// multiples of real time on one core.
void ModeChain(benchmark::State& state) {
  constexpr uint32_t kStandard = 1, kPersonalized = 2;
  setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  kelda::test::Effect effect;
  effect.SetParam(kelda::test::kWiredHrtf, state.range(1) != 0 ? kPersonalized : kStandard);
  effect.SetMode(static_cast<uint32_t>(state.range(0)));
  effect.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADPHONE);
  effect.Enable();

  std::vector<float> in = kelda::upmix_lib::Noise(2 * kPeriod, 1, 0.2f), out(2 * kPeriod);
  for (int block = 0; state.range(2) != 0 && block < 2800; ++block) {
    for (float& sample : in) {
      sample = block < 200 ? 0.8f * sample : 0.0f;
    }
    effect.Process(in.data(), out.data(), kPeriod);
  }
  for ([[maybe_unused]] auto _ : state) {
    effect.Process(in.data(), out.data(), kPeriod);
  }
  state.counters["x_real_time"] = benchmark::Counter(
      static_cast<double>(kPeriod) / 48000.0 * static_cast<double>(state.iterations()),
      benchmark::Counter::kIsRate);
}
BENCHMARK(ModeChain)
    ->ArgNames({"mode", "equalizer", "silence"})
    ->ArgsProduct({{0, 1, 2}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
