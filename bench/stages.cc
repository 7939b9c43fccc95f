// The stages of the chain with the default tuning, each alone, per period, compared with memory
// copies of the period and with real transforms of 1024 points (FFTW's, measured plan).
#include <android/log.h>
#include <fftw3.h>

#include <algorithm>
#include <memory>
#include <string>

#include "bench/against_copy.h"
#include "pipeline/pass_through_processor.h"
#include "processors/headphone_equalizer_processor.h"
#include "processors/upl_audio_processor.h"
#include "processors/upmix_cinema_processor.h"
#include "processors/upmix_music_processor.h"
#include "tests/laboratory/signals.h"

namespace kelda::bench {
namespace {

constexpr unsigned kPeriod = 1024;
constexpr double kPeriodSeconds = kPeriod / 48000.0;

// Seconds of one transform.
double TransformTime() {
  constexpr int kBatch = 100;
  BufferPair buffers(kPeriod + 2);
  fftwf_plan plan = fftwf_plan_dft_r2c_1d(
      kPeriod, buffers.from(), reinterpret_cast<fftwf_complex*>(buffers.to()), FFTW_MEASURE);
  std::vector<double> times(30);
  for (double& time : times) {
    time = Time(kBatch, [&] { fftwf_execute(plan); }) / kBatch;
  }
  fftwf_destroy_plan(plan);
  return Median(times);
}

void Run(benchmark::State& state, AudioProcessor* stage) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  const std::string tuning = DEFAULT_TUNING "/";
  stage->SetParameters({{"ap_param_hki_config", tuning + "wired.hki.config"},
                        {"ap_param_ba_config", tuning + "wired.ba.config"},
                        {"music_param_bin_file", tuning + "upmix.music.hpp.bin"},
                        {"cinema_param_bin_file", tuning + "upmix.cinema.hpp.bin"},
                        {"upl_param_bin_file", tuning + "upl.music.bin"}});
  BufferPair blocks(2 * kPeriod);
  std::ranges::copy(upmix_lib::Noise(2 * kPeriod, 1, 0.2f), blocks.from());
  if (!stage->Process(blocks.from(), blocks.to(), kPeriod)) {
    state.SkipWithError("the stage did not load its files");
    return;
  }
  const double time = AgainstCopy(state, 2 * kPeriod, [&] {
    stage->Process(blocks.from(), blocks.to(), kPeriod);
    benchmark::ClobberMemory();
  });
  state.counters["transforms"] = time / TransformTime();
  state.counters["x_real_time"] = kPeriodSeconds / time;
}

void PassThroughStage(benchmark::State& state) {
  Run(state, std::make_unique<PassThroughProcessor>(2, 2, kPeriod).get());
}
void MusicStage(benchmark::State& state) {
  Run(state, std::make_unique<UpmixMusicProcessor>().get());
}
void CinemaStage(benchmark::State& state) {
  Run(state, std::make_unique<UpmixCinemaProcessor>().get());
}
void EqualizerStage(benchmark::State& state) {
  Run(state, std::make_unique<HeadphoneEqualizerProcessor>().get());
}
void LevelStage(benchmark::State& state) {
  Run(state, std::make_unique<UplAudioProcessor>().get());
}
BENCHMARK(PassThroughStage)->UseManualTime();
BENCHMARK(MusicStage)->UseManualTime();
BENCHMARK(CinemaStage)->UseManualTime();
BENCHMARK(EqualizerStage)->UseManualTime();
BENCHMARK(LevelStage)->UseManualTime();

}  // namespace
}  // namespace kelda::bench
