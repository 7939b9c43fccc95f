#include "pipeline/matrix_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include "pipeline/audio_process_sequencer.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

TEST(MatrixConversionTest, AgreesWithTheIndexFormulaOnAwkwardSizes) {
  std::mt19937 random(test::NewSeed());
  for (const int frames : {1, 2, 3, 7, 8, 31, 64, 65, 1000, 1023, 1024}) {
    for (const int channels : {1, 2, 3, 6, 7, 13, 16}) {
      std::vector<int> table(static_cast<size_t>(channels));
      std::iota(table.begin(), table.end(), 0);
      for (const int* used : {static_cast<const int*>(nullptr), std::as_const(table).data()}) {
        std::shuffle(table.begin(), table.end(), random);
        const size_t samples = static_cast<size_t>(frames) * table.size();
        const auto in = test::Ramp(static_cast<unsigned>(samples), 1);
        std::vector<float> planar(samples), interleaved(samples), expected(samples);
        for (int f = 0; f < frames; ++f) {
          for (int c = 0; c < channels; ++c) {
            const int to = used != nullptr ? used[c] : c;
            expected[static_cast<size_t>(to * frames + f)] =
                in[static_cast<size_t>(f * channels + c)];
          }
        }
        MatrixConversion::ToPlanar(planar.data(), in.data(), frames, channels, used);
        ASSERT_EQ(planar, expected) << frames << " frames, " << channels << " channels";
        // Back without a table: the planes in their order; with one: plane c to slot table[c].
        for (int f = 0; f < frames; ++f) {
          for (int c = 0; c < channels; ++c) {
            const int to = used != nullptr ? used[c] : c;
            expected[static_cast<size_t>(f * channels + to)] =
                planar[static_cast<size_t>(c * frames + f)];
          }
        }
        MatrixConversion::ToInterleave(interleaved.data(), planar.data(), frames, channels, used);
        ASSERT_EQ(interleaved, expected) << frames << " frames, " << channels << " channels";
      }
    }
  }
}

TEST(MatrixConversionTest, LeavesAloneWhatNoEntryNames) {
  const int table[] = {0, 0};
  const float in[] = {1, 2, 3, 4};
  float out[] = {9, 9, 9, 9};
  MatrixConversion::ToPlanar(out, in, 2, 2, table);
  EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{2, 4, 9, 9}));
  float slots[] = {9, 9, 9, 9};
  MatrixConversion::ToInterleave(slots, in, 2, 2, table);
  EXPECT_EQ(std::vector<float>(slots, slots + 4), (std::vector<float>{3, 9, 4, 9}));
  for (const auto& [frames, channels] : {std::pair{0, 2}, {2, 0}, {-1, 2}, {2, -1}}) {
    MatrixConversion::ToPlanar(nullptr, nullptr, frames, channels, nullptr);
    MatrixConversion::ToInterleave(nullptr, nullptr, frames, channels, table);
  }
}

TEST(MatrixConversionTest, SwapTables) {
  const auto planes = [](unsigned channels) {
    const int* const table = AudioProcessSequencer::GetSwapTable(channels);
    return std::vector<int>(table, table + channels);
  };
  EXPECT_EQ(planes(13), (std::vector{1, 2, 0, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12}));
  EXPECT_EQ(planes(16), (std::vector{1, 2, 0, 15, 13, 14, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12}));
  for (unsigned channels = 0; channels < 40; ++channels) {
    if (channels == 13 || channels == 16) continue;
    EXPECT_EQ(AudioProcessSequencer::GetSwapTable(channels), nullptr) << channels;
  }
}

}  // namespace
}  // namespace kelda
