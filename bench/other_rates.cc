// What a stream of another rate costs at the door of the AIDL effect service: the effect behind it
// with the upmix off at that rate and at 48000 Hz in turn, beside libsoxr, which converts there and
// back in the same run.
#include <android/log.h>
#include <cutils/properties.h>
#include <soxr.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "bench/against_copy.h"
#include "hal/session.h"
#include "tests/laboratory/effect_client.h"
#include "tests/laboratory/signals.h"

namespace kelda::bench {
namespace {

struct SoxrDeleter {
  void operator()(soxr* converter) const { soxr_delete(converter); }
};
using Soxr = std::unique_ptr<soxr, SoxrDeleter>;

Soxr MakeSoxr(double from_hz, double to_hz) {
  const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  return Soxr(soxr_create(from_hz, to_hz, 2, nullptr, &samples, &quality, nullptr));
}

// Argument: the rate. Blocks of 10 ms. Counters, in microseconds a period of 21.3 ms: what the rate
// adds to the door at 48000 Hz, and what libsoxr takes.
void OtherRate(benchmark::State& state) {
  constexpr int kBatch = 50;
  setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const auto rate = static_cast<int32_t>(state.range(0));
  const std::shared_ptr<changeover::Worker> worker = hal::SharedWorker(test::Library());
  const auto open = [&](int32_t rate_hz) {
    auto session = std::make_unique<hal::Session>(worker, hal::SessionOptions{});
    const hal::AudioConfig side{rate_hz, 3, true, rate_hz / 100};
    session->Open({1, 13, side, side});
    session->Do(hal::Command::Start);
    return session;
  };
  const auto session = open(rate), plain = open(kSampleRateHz);
  const Soxr there = MakeSoxr(rate, kSampleRateHz), back = MakeSoxr(kSampleRateHz, rate);
  const auto frames = static_cast<std::size_t>(rate / 100);
  const std::vector<float> sound = upmix_lib::Noise(2 * frames + 1000, 1, 0.2f);
  std::vector<float> block(sound), middle(2 * 2 * 480), out(4 * frames);
  const double us_a_period = 1e6 * 1024 / 480 / kBatch;
  std::vector<double> added_us, soxr_us;
  while (state.KeepRunningBatch(kBatch)) {
    const double at_48000 = Time(kBatch, [&] { plain->Process(sound.data(), block.data(), 960); });
    const double at_rate =
        Time(kBatch, [&] { session->Process(sound.data(), block.data(), 2 * frames); });
    const double by_soxr = Time(kBatch, [&] {
      std::size_t done = 0;
      soxr_process(there.get(), sound.data(), frames, nullptr, middle.data(), 960, &done);
      soxr_process(back.get(), middle.data(), done, nullptr, out.data(), 2 * frames, nullptr);
    });
    added_us.push_back(us_a_period * (at_rate - at_48000));
    soxr_us.push_back(us_a_period * by_soxr);
    state.SetIterationTime(at_rate);
  }
  state.counters["rate_us"] = Median(added_us);
  state.counters["soxr_us"] = Median(soxr_us);
}
BENCHMARK(OtherRate)
    ->ArgName("hz")
    ->ArgsProduct({{44100, 88200, 96000, 176400, 192000}})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kelda::bench
