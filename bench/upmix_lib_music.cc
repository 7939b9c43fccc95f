// The music upmix per period of 16 hops, and its parts. Compare with MemoryCopy, and
// with MusicTransforms: the two forward and three inverse transforms of each hop.
#include <benchmark/benchmark.h>

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
  SharedFilterBankTables();
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

void MusicTransforms(benchmark::State& state) {
  const RealFft& fft = SharedRealFft<kTransformFrames>();
  const std::vector<float> noise = Noise(kTransformFrames, 1);
  AlignedBuffer signal(kTransformFrames), re(kPaddedBins), im(kPaddedBins);
  AlignedBuffer scratch(static_cast<std::size_t>(fft.scratch_floats()));
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < 2 * kHops; ++i) {
      fft.Forward(noise.data(), re.data(), im.data(), scratch.data());
      benchmark::ClobberMemory();
    }
    for (int i = 0; i < 3 * kHops; ++i) {
      fft.Inverse(re.data(), im.data(), signal.data(), scratch.data());
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(MusicTransforms);

void MusicDecomposition(benchmark::State& state) {
  const auto tuning = MusicTuning(DefaultParameters<MusicParameters>(kMusicKind, kMusicFields));
  Decomposition decomposition(tuning.decomposition);
  Analysis analysis[2];
  Spectrum left, right;
  const std::vector<float> noise = Noise(kTransformFrames, 1);
  for (std::size_t at = 0; at < kTransformFrames; at += kHopFrames) {
    analysis[0].Process(&noise[at], left);
    analysis[1].Process(&noise[kTransformFrames - kHopFrames - at], right);
  }
  DirectAndAmbience out;
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < kHops; ++i) {
      decomposition.Process(left, right, out);
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(MusicDecomposition);

void MusicDecorrelation(benchmark::State& state) {
  Decorrelator decorrelator;
  const std::vector<float> noise = Noise(kHopFrames, 1);
  float out[2][kHopFrames];
  for ([[maybe_unused]] auto _ : state) {
    for (int i = 0; i < kHops; ++i) {
      decorrelator.Process(noise.data(), out[0], out[1]);
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(MusicDecorrelation);

}  // namespace
}  // namespace kelda::upmix_lib
