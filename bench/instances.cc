// Several instances in turn, each a period of music on headphones with personal ears: what a
// period of one costs when the caches hold data of the others, and how much memory one takes.
// Counters: the heap of each instance in KiB, when created and when all stages are loaded.
#include <android/log.h>
#include <cutils/properties.h>

#include <cstddef>
#include <memory>

#include "bench/against_copy.h"
#include "tests/laboratory/resources.h"
#include "tools/framework/effect_session.h"

namespace kelda::bench {
namespace {

constexpr std::size_t kPeriod = 1024;

double HeapKiB() { return static_cast<double>(test::HeapBytes()) / 1024; }

void Instances(benchmark::State& state) {
  setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const tools::EffectLibrary library(EFFECT_LIBRARY);
  const auto count = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<tools::EffectSession>> sessions(count);
  const auto load = [](tools::EffectSession& session) {
    session.SetParam(UpmixParam::WiredHrtf, 2u);
    session.SetParam(UpmixParam::Mode, 1u);
    session.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADPHONE);
    session.Enable();
  };
  {
    tools::EffectSession first(library);  // what instances share is made once
    load(first);
  }
  const double before = HeapKiB();
  for (auto& session : sessions) {
    session = std::make_unique<tools::EffectSession>(library);
  }
  const double created = HeapKiB();
  for (auto& session : sessions) {
    load(*session);
  }
  const double loaded = HeapKiB();

  std::vector<float> block(2 * kPeriod);
  for (std::size_t i = 0; i < block.size(); ++i) {
    block[i] = static_cast<float>(i % 97) / 970;
  }
  for ([[maybe_unused]] auto _ : state) {
    const double time = Time(1, [&] {
      for (auto& session : sessions) {
        std::vector<float> out = block;
        session->Process(out.data(), kPeriod);
      }
    });
    state.SetIterationTime(time / static_cast<double>(count));
  }
  // Includes the level control of the first engine, which the session's INIT replaces.
  state.counters["created_KiB"] = (created - before) / static_cast<double>(count);
  state.counters["loaded_KiB"] = (loaded - before) / static_cast<double>(count);
}
BENCHMARK(Instances)
    ->ArgName("instances")
    ->Arg(1)
    ->Arg(8)
    ->Arg(64)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kelda::bench
