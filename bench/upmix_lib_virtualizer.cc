// The virtualizer per period, without and with its room. Compare with MemoryCopy, and
// with FloorTransforms: the nine transforms that no virtualizer of this length does
// without (one for each plane, one for each ear).
#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "tests/laboratory/signals.h"
#include "upmix-lib/binaural/virtualizer.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

void Virtualize(benchmark::State& state, const RoomParameters& room) {
  HrirSet hrirs;
  hrirs.taps = static_cast<int>(state.range(0));
  hrirs.responses = Noise(static_cast<std::size_t>(hrirs.taps) * kPlanes * kEars, 1);
  hrirs.room = room;
  Virtualizer virtualizer(hrirs);

  const std::vector<float> in = Noise(kPlanes * kBlockFrames, 2);
  const std::array<int32_t, kPlanes> flags{};
  std::vector<float> left(kBlockFrames), right(kBlockFrames);
  for ([[maybe_unused]] auto _ : state) {
    virtualizer.Process(kBlockFrames, in.data(), flags.data(), left.data(), right.data());
    benchmark::DoNotOptimize(left.data());
    benchmark::ClobberMemory();
  }
}

RoomParameters DefaultRoom() {
  RoomParameters room;
  SetDefaults(std::as_writable_bytes(std::span(&room, 1)), kRoomFields);
  return room;
}

void VirtualizerDry(benchmark::State& state) {
  RoomParameters room = DefaultRoom();
  room.early_level_db = room.late_level_db = kRoomOffDb;
  Virtualize(state, room);
}
BENCHMARK(VirtualizerDry)->ArgName("taps")->Arg(128)->Arg(256)->Arg(512)->Arg(1024);

// 256 taps: the default tuning.
void VirtualizerRoom(benchmark::State& state) { Virtualize(state, DefaultRoom()); }
BENCHMARK(VirtualizerRoom)->ArgName("taps")->Arg(256);

void FloorTransforms(benchmark::State& state) {
  const RealFft& fft = SharedRealFft<1280>();
  AlignedBuffer signal(1280), re(641), im(641);
  AlignedBuffer scratch(static_cast<std::size_t>(fft.scratch_floats()));
  for ([[maybe_unused]] auto _ : state) {
    for (uint32_t plane = 0; plane < kPlanes; ++plane) {
      fft.Forward(signal.data(), re.data(), im.data(), scratch.data());
      benchmark::ClobberMemory();
    }
    for (int ear = 0; ear < kEars; ++ear) {
      fft.Inverse(re.data(), im.data(), signal.data(), scratch.data());
      benchmark::ClobberMemory();
    }
  }
}
BENCHMARK(FloorTransforms);

}  // namespace
}  // namespace kelda::upmix_lib
