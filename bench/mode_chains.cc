// What each mode's whole chain costs a period with the default tuning: through the
// library's own record, as the framework calls it.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <cutils/properties.h>
#include <hardware/audio_effect.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

extern "C" audio_effect_library_t AELI;

namespace {

constexpr std::size_t kPeriod = 1024;

void Command(effect_handle_t effect, uint32_t code, uint32_t size, void* data) {
  int32_t reply[4] = {};
  uint32_t reply_size = sizeof(int32_t);
  (*effect)->command(effect, code, size, data, &reply_size, reply);
}

void SetParam(effect_handle_t effect, uint32_t param, uint32_t value) {
  uint32_t words[] = {0, sizeof(param), sizeof(value), param, value};
  Command(effect, EFFECT_CMD_SET_PARAM, sizeof(words), words);
}

// Arguments: the mode (0 off, 1 music, 2 cinema); whether the ears are personalized, so
// that the headphone equalizer runs. Counter: multiples of real time on one core.
void ModeChain(benchmark::State& state) {
  constexpr uint32_t kModeParam = 0, kWiredHrtfParam = 1, kStandard = 1, kPersonalized = 2;
  setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const audio_uuid_t uuid = {
      0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};
  effect_handle_t effect = nullptr;
  if (AELI.create_effect(&uuid, 0, 0, &effect) != 0) {
    state.SkipWithError("cannot create the effect");
    return;
  }
  SetParam(effect, kWiredHrtfParam, state.range(1) != 0 ? kPersonalized : kStandard);
  SetParam(effect, kModeParam, static_cast<uint32_t>(state.range(0)));
  uint32_t device[4] = {AUDIO_DEVICE_OUT_WIRED_HEADPHONE};
  Command(effect, EFFECT_CMD_SET_DEVICE, sizeof(uint32_t), device);
  Command(effect, EFFECT_CMD_ENABLE, 0, nullptr);

  std::mt19937 random(1);
  std::normal_distribution<float> noise(0.0f, 0.1f);
  std::vector<float> in(2 * kPeriod), out(2 * kPeriod);
  for (float& sample : in) sample = noise(random);
  audio_buffer_t in_buffer{kPeriod, {in.data()}};
  audio_buffer_t out_buffer{kPeriod, {out.data()}};
  for ([[maybe_unused]] auto _ : state) {
    (*effect)->process(effect, &in_buffer, &out_buffer);
  }
  state.counters["x_real_time"] = benchmark::Counter(
      static_cast<double>(kPeriod) / 48000.0 * static_cast<double>(state.iterations()),
      benchmark::Counter::kIsRate);
  AELI.release_effect(effect);
}
BENCHMARK(ModeChain)
    ->ArgNames({"mode", "equalizer"})
    ->ArgsProduct({{0, 1, 2}, {0, 1}})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
