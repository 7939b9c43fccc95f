// The music upmix per period of 16 hops, and its parts. Compare with MemoryCopy, and
// with MusicTransforms: all transforms that it makes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "tests/laboratory/signals.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/music_upmix.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kHops = kBlockFrames / kHopFrames;

void MusicUpmix(benchmark::State& state) {
  const auto upmix = std::make_unique<PlaneUpmix>(
      MusicTuning(DefaultParameters<MusicParameters>(kMusicKind, kMusicFields)));
  const std::vector<float> left = Noise(kBlockFrames, 1), right = Noise(kBlockFrames, 2);
  std::vector<float> planes(kPlanes * kBlockFrames);
  for ([[maybe_unused]] auto _ : state) {
    for (std::size_t at = 0; at < kBlockFrames; at += kHopFrames) {
      const float* in[2] = {&left[at], &right[at]};
      float* out[kPlanes];
      for (std::size_t plane = 0; plane < kPlanes; ++plane) {
        out[plane] = &planes[plane * kBlockFrames + at];
      }
      upmix->Process(in, out);
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MusicUpmix);

// Of a period: of both analyses, of the gains' filters, and of what is convolved.
void MusicTransforms(benchmark::State& state) {
  const RealFft& long_fft = SharedRealFft<kLongFrames>();
  const RealFft& short_fft = SharedRealFft<kShortFrames>();
  const RealFft& hop_fft = SharedRealFft<kHopTransform>();
  const std::vector<float> noise = Noise(kLongFrames, 1);
  AlignedBuffer signal(kLongFrames), re(kPaddedLongBins), im(kPaddedLongBins);
  AlignedBuffer scratch(static_cast<std::size_t>(long_fft.scratch_floats()));
  const auto run = [&](const RealFft& fft, int forward, int inverse) {
    for (int i = 0; i < forward; ++i) {
      fft.Forward(noise.data(), re.data(), im.data(), scratch.data());
      benchmark::ClobberMemory();
    }
    for (int i = 0; i < inverse; ++i) {
      fft.Inverse(re.data(), im.data(), signal.data(), scratch.data());
      benchmark::ClobberMemory();
    }
  };
  constexpr int kFilters = kHops / kHopsPerGains * kCurves;
  for ([[maybe_unused]] auto _ : state) {
    run(short_fft, 2 * kHops, 0);
    run(long_fft, 2 * kHops / kHopsPerLong, kFilters);
    run(hop_fft, kFilters * FixedLagFilters::kPartitions + (2 + 2) * kHops, (2 * 3 + 4) * kHops);
  }
}
BENCHMARK(MusicTransforms);

PlaneTuning DefaultTuning() {
  return MusicTuning(DefaultParameters<MusicParameters>(kMusicKind, kMusicFields));
}

void MusicDecomposition(benchmark::State& state) {
  const auto decomposition = std::make_unique<Decomposition>(DefaultTuning().decomposition);
  const auto left = std::make_unique<Analysis>(), right = std::make_unique<Analysis>();
  const std::vector<float> noise = Noise(2 * kLongFrames, 1);
  for (std::size_t at = 0; at < kLongFrames; at += kHopFrames) {
    left->Append(&noise[at]);
    right->Append(&noise[kLongFrames + at]);
  }
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < kHops; ++i) {
      benchmark::DoNotOptimize(decomposition->Process(*left, *right));
    }
  }
}
BENCHMARK(MusicDecomposition);

void MusicFilters(benchmark::State& state) {
  const Decomposition decomposition(DefaultTuning().decomposition);
  const auto filters = std::make_unique<FixedLagFilters>(decomposition.gains());
  const std::vector<float> noise = Noise(2 * kHopTransform, 1);
  Extracted out;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < kHops; ++i) {
      if (i % kHopsPerGains == 0) {
        filters->MoveTo(decomposition.gains(), kHopsPerMove);
      }
      filters->Process(noise.data(), noise.data() + kHopTransform, out);
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(MusicFilters);

void MusicDiffusion(benchmark::State& state) {
  const auto diffuser = std::make_unique<Diffuser>();
  const std::vector<float> noise = Noise(2 * kHopFrames, 1);
  float ambience[2][kHopFrames];
  std::copy_n(noise.data(), 2 * kHopFrames, ambience[0]);
  Diffused out;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < kHops; ++i) {
      diffuser->Process(ambience, out);
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(MusicDiffusion);

}  // namespace
}  // namespace kelda::upmix_lib
