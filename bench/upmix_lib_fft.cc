// The library's real transforms beside KissFFT and FFTW (single precision, measured
// plans), forward and inverse.
#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <vector>

#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

void Sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {256, 320, 384, 512, 640, 768, 1024, 1280, 1536, 2048}) {
    benchmark->Arg(size);
  }
}

template <typename Transform>
void Run(benchmark::State& state, float* touched, Transform transform) {
  for ([[maybe_unused]] auto _ : state) {
    transform();
    benchmark::DoNotOptimize(touched);
    benchmark::ClobberMemory();
  }
}

struct RealBuffers {
  explicit RealBuffers(int size)
      : fft(size),
        signal(static_cast<std::size_t>(size)),
        re(static_cast<std::size_t>(fft.bins())),
        im(static_cast<std::size_t>(fft.bins())),
        scratch(static_cast<std::size_t>(fft.scratch_floats())) {
    std::fill_n(signal.data(), size, 0.5f);
  }
  RealFft fft;
  AlignedBuffer signal, re, im, scratch;
};

void FftForward(benchmark::State& state) {
  RealBuffers b(static_cast<int>(state.range(0)));
  Run(state, b.re.data(),
      [&] { b.fft.Forward(b.signal.data(), b.re.data(), b.im.data(), b.scratch.data()); });
}
BENCHMARK(FftForward)->Apply(Sizes);

void FftInverse(benchmark::State& state) {
  RealBuffers b(static_cast<int>(state.range(0)));
  Run(state, b.signal.data(),
      [&] { b.fft.Inverse(b.re.data(), b.im.data(), b.signal.data(), b.scratch.data()); });
}
BENCHMARK(FftInverse)->Apply(Sizes);

void FftwForward(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  AlignedBuffer signal(static_cast<std::size_t>(size));
  AlignedBuffer spectrum(static_cast<std::size_t>(size + 2));
  fftwf_plan plan = fftwf_plan_dft_r2c_1d(
      size, signal.data(), reinterpret_cast<fftwf_complex*>(spectrum.data()), FFTW_MEASURE);
  Run(state, spectrum.data(), [&] { fftwf_execute(plan); });
  fftwf_destroy_plan(plan);
}
BENCHMARK(FftwForward)->Apply(Sizes);

void KissFftForward(benchmark::State& state) {
  const int size = static_cast<int>(state.range(0));
  AlignedBuffer signal(static_cast<std::size_t>(size));
  std::vector<kiss_fft_cpx> spectrum(static_cast<std::size_t>(size / 2 + 1));
  kiss_fftr_cfg config = kiss_fftr_alloc(size, 0, nullptr, nullptr);
  Run(state, signal.data(), [&] { kiss_fftr(config, signal.data(), spectrum.data()); });
  kiss_fftr_free(config);
}
BENCHMARK(KissFftForward)->Apply(Sizes);

}  // namespace
}  // namespace kelda::upmix_lib
