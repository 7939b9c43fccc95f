// The layout conversions per period, compared with memory copies of it, with the tables that
// the chain uses for 13 and 16 channels.
#include <cstddef>

#include "bench/against_copy.h"
#include "pipeline/audio_process_sequencer.h"
#include "pipeline/matrix_conversion.h"

namespace kelda::bench {
namespace {

constexpr int kPeriod = 1024;

template <auto kConvert>
void Conversion(benchmark::State& state) {
  const int channels = static_cast<int>(state.range(0));
  const int* const table = AudioProcessSequencer::GetSwapTable(static_cast<unsigned>(channels));
  const std::size_t samples = std::size_t{kPeriod} * static_cast<std::size_t>(channels);
  BufferPair buffers(samples);
  AgainstCopy(state, samples, [&] {
    kConvert(buffers.to(), buffers.from(), kPeriod, channels, table);
    benchmark::ClobberMemory();
  });
}

void ToPlanar(benchmark::State& state) { Conversion<&MatrixConversion::ToPlanar>(state); }
void ToInterleave(benchmark::State& state) { Conversion<&MatrixConversion::ToInterleave>(state); }

BENCHMARK(ToPlanar)->ArgName("channels")->Arg(2)->Arg(7)->Arg(13)->Arg(16)->UseManualTime();
BENCHMARK(ToInterleave)->ArgName("channels")->Arg(2)->Arg(7)->Arg(13)->Arg(16)->UseManualTime();

}  // namespace
}  // namespace kelda::bench
