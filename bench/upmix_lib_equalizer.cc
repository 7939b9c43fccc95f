// The headphone equalizer, per period of 1024 stereo frames.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/equalizer/equalizer.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::upmix_lib {
namespace {

void Run(benchmark::State& state, const EqualizerTuning& tuning) {
  const std::unique_ptr<Equalizer> equalizer = Equalizer::Make(tuning);
  std::vector<float> in(2 * kBlockFrames), block(in.size());
  for (std::size_t i = 0; i < in.size(); ++i) {
    in[i] = std::sin(0.1f * static_cast<float>(i));
  }
  for ([[maybe_unused]] auto _ : state) {
    block = in;
    equalizer->Process(block.data(), block.data() + kBlockFrames);
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
}

EqualizerTuning Bands(std::size_t count) {
  EqualizerTuning tuning;
  tuning.curves.resize(1);
  for (std::size_t i = 0; i < count; ++i) {
    const double freq_hz = 31.25 * std::pow(2.0, 9.0 * static_cast<double>(i) / 10);
    tuning.curves[0].bands.push_back(
        {BandType::kPeaking, std::fmin(static_cast<float>(freq_hz), kBandMaxHz), 2, 1.4f});
  }
  return tuning;
}

void EqualizerBands(benchmark::State& state) {
  Run(state, Bands(static_cast<std::size_t>(state.range(0))));
}
BENCHMARK(EqualizerBands)->Arg(0)->Arg(1)->Arg(2)->Arg(5)->Arg(10)->Arg(20)->Arg(31)->Arg(64);

void EqualizerFir(benchmark::State& state) {
  EqualizerTuning tuning;
  tuning.form = EqualizerForm::kFir;
  tuning.curves = {{{}, std::vector<float>(static_cast<std::size_t>(state.range(0)), 0.01f)}};
  Run(state, tuning);
}
BENCHMARK(EqualizerFir)->Arg(16)->Arg(64)->Arg(256)->Arg(1024)->Arg(4096)->Arg(8192);

// Ten bands on two channels, a section and a channel after the other.
void PlainBiquads(benchmark::State& state) {
  const EqualizerTuning tuning = Bands(10);
  std::vector<Biquad> biquads;
  for (const EqualizerBand& band : tuning.curves[0].bands) {
    biquads.push_back(DesignBiquad(band));
  }
  double states[2][10][2] = {};
  const std::vector<float> in(2 * kBlockFrames, 0.5f);
  std::vector<float> block(in.size());
  for ([[maybe_unused]] auto _ : state) {
    block = in;
    for (std::size_t channel = 0; channel < 2; ++channel) {
      for (std::size_t band = 0; band < biquads.size(); ++band) {
        const Biquad b = biquads[band];
        double s1 = states[channel][band][0], s2 = states[channel][band][1];
        for (std::size_t i = 0; i < kBlockFrames; ++i) {
          float& sample = block[channel * kBlockFrames + i];
          const double x = static_cast<double>(sample);
          const double y = b.b0 * x + s1;
          s1 = b.b1 * x - b.a1 * y + s2;
          s2 = b.b2 * x - b.a2 * y;
          sample = static_cast<float>(y);
        }
        states[channel][band][0] = s1;
        states[channel][band][1] = s2;
      }
    }
    benchmark::DoNotOptimize(block.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(PlainBiquads);

}  // namespace
}  // namespace kelda::upmix_lib
