// The cinema upmix per period, with its room and without. Compare with MemoryCopy,
// MusicTransforms (the upmix's) and FloorTransforms (the HRIRs').
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/laboratory/signals.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/upmix/cinema.h"

namespace kelda::upmix_lib {
namespace {

void RunCinema(benchmark::State& state, bool with_room) {
  auto parameters = DefaultParameters<CinemaParameters>(kCinemaKind, kCinemaFields);
  if (!with_room) {
    parameters.room_level_db = parameters.room_early_level_db = kRoomOffDb;
  }
  HrirSet hrirs;
  hrirs.taps = 256;
  hrirs.responses = Noise(kPlanes * kEars * 256, 1);
  const auto cinema = std::make_unique<Cinema>(parameters, hrirs);
  const std::vector<float> left = Noise(kBlockFrames, 2), right = Noise(kBlockFrames, 3);
  std::vector<float> out_left(kBlockFrames), out_right(kBlockFrames);
  const float* in[2] = {left.data(), right.data()};
  float* out[2] = {out_left.data(), out_right.data()};
  for ([[maybe_unused]] auto _ : state) {
    cinema->Process(in, out);
    benchmark::ClobberMemory();
  }
}

void CinemaRoom(benchmark::State& state) { RunCinema(state, true); }
BENCHMARK(CinemaRoom);

void CinemaDry(benchmark::State& state) { RunCinema(state, false); }
BENCHMARK(CinemaDry);

void CinemaBass(benchmark::State& state) {
  BassSplitter splitter(100.0f);
  const std::vector<float> left = Noise(kBlockFrames, 2), right = Noise(kBlockFrames, 3);
  std::vector<float> high[2], low[2];
  for (const int ear : {0, 1}) {
    high[ear].resize(kBlockFrames);
    low[ear].resize(kBlockFrames);
  }
  for ([[maybe_unused]] auto _ : state) {
    splitter.Process(left.data(), right.data(), kBlockFrames, {high[0].data(), high[1].data()},
                     {low[0].data(), low[1].data()});
    benchmark::ClobberMemory();
  }
}
BENCHMARK(CinemaBass);

}  // namespace
}  // namespace kelda::upmix_lib
