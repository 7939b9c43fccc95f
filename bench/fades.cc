// The fades of a mode change, in memory copies of the faded frames: a ramp's gains are
// computed for each frame, by the mathematical library's cosine.
#include "bench/against_copy.h"
#include "pipeline/fadable_ring_buffer.h"

namespace kelda::bench {
namespace {

constexpr unsigned kFadeFrames = 4800;
constexpr unsigned kPeriod = 1024;
constexpr int kPeriodBytes = 2 * kPeriod * sizeof(float);

// Fades out range(0) queued periods, as the first block after each change does.
void FadeOut(benchmark::State& state) {
  const auto periods = static_cast<unsigned>(state.range(0));
  FadableRingBuffer ring(2, 8 * kPeriodBytes, 0);
  std::vector<float> period(2 * kPeriod);  // of zeros: what fades again and again gets denormal
  for (unsigned i = 0; i < periods; ++i) {
    ring.Enqueue(reinterpret_cast<const char*>(period.data()), kPeriodBytes);
  }
  AgainstCopy(state, 2 * kPeriod * periods, [&] { ring.FadeOut(kPeriod * periods); });
}
BENCHMARK(FadeOut)->ArgName("periods")->Arg(1)->Arg(2)->UseManualTime();

// Fades in one of the five periods that a fade-in takes.
void FadeIn(benchmark::State& state) {
  FadableRingBuffer ring(2, 8 * kPeriodBytes, 0);
  std::vector<float> period(2 * kPeriod);
  AgainstCopy(state, 2 * kPeriod, [&] {
    ring.RequestFadingFrames(kFadeFrames, 0);
    ring.FadeIn(reinterpret_cast<char*>(period.data()), kPeriodBytes);
  });
}
BENCHMARK(FadeIn)->UseManualTime();

}  // namespace
}  // namespace kelda::bench
