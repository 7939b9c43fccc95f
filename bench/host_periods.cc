// What the host that changes settings without a click adds to a period, settled: the effect behind
// it and behind its record in turn, in one run, so that a busy machine slows both.
#include <android/log.h>
#include <cutils/properties.h>

#include <cstddef>
#include <string>
#include <vector>

#include "bench/against_copy.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/signals.h"
#include "tools/framework/host_session.h"

namespace kelda::bench {
namespace {

// Arguments: the mode (0 off, 1 music, 2 cinema); frames of the host's blocks. Counters: the period
// behind the record, and what the host adds, in microseconds.
void HostPeriod(benchmark::State& state) {
  constexpr int kBatch = 4;
  setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const tools::EffectLibrary library(EFFECT_LIBRARY);
  tools::HostSession host(library);
  for (const std::string& text :
       {std::string("device=wired"), std::string("mode=") + tools::kModeNames[state.range(0)]}) {
    host.Apply(tools::ParseSetting(text));
  }
  host.Enable();
  const auto block = static_cast<std::size_t>(state.range(1));
  const std::vector<float> sound = upmix_lib::Noise(kPeriodFrames * 2, 1, 0.2f);
  test::Effect direct;
  direct.SetMode(static_cast<uint32_t>(state.range(0)));
  direct.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADPHONE);
  direct.Enable();
  std::vector<float> in(sound), out(sound);
  std::vector<double> direct_us, added_us;
  while (state.KeepRunningBatch(kBatch)) {
    const double alone =
        Time(kBatch, [&] { direct.Process(in.data(), out.data(), kPeriodFrames); });
    const double hosted = Time(kBatch, [&] {
      for (std::size_t frame = 0; frame < kPeriodFrames; frame += block) {
        host.session().Process(&in[2 * frame], &out[2 * frame], block);
      }
    });
    direct_us.push_back(1e6 * alone / kBatch);
    added_us.push_back(1e6 * (hosted - alone) / kBatch);
    state.SetIterationTime(hosted);
  }
  state.counters["record_us"] = Median(direct_us);
  state.counters["added_us"] = Median(added_us);
}
BENCHMARK(HostPeriod)
    ->ArgNames({"mode", "block"})
    ->ArgsProduct({{0, 1, 2}, {1024, 64}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kelda::bench
