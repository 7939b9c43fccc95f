#include "pipeline/matrix_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "pipeline/audio_process_sequencer.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

TEST(MatrixConversionTest, AgreesWithTheIndexFormulaOnAwkwardSizes) {
  std::mt19937 random(test::NewSeed());
  for (const unsigned frames : {1u, 2u, 3u, 7u, 8u, 31u, 64u, 65u, 1000u, 1023u, 1024u}) {
    for (const unsigned channels : {1u, 2u, 3u, 6u, 7u, 13u, 16u}) {
      std::vector<int> table(channels);
      std::iota(table.begin(), table.end(), 0);
      for (const bool reordered : {false, true}) {
        if (reordered) std::shuffle(table.begin(), table.end(), random);
        const int* const used = reordered ? table.data() : nullptr;
        const auto in = test::Ramp(frames * channels, 1);
        std::vector<float> planar(in.size()), interleaved(in.size());
        std::vector<float> expected_planar(in.size()), expected_interleaved(in.size());
        for (unsigned f = 0; f < frames; ++f) {
          for (unsigned c = 0; c < channels; ++c) {
            const auto to = static_cast<unsigned>(table[c]);
            expected_planar[to * frames + f] = in[f * channels + c];
            expected_interleaved[f * channels + to] = in[c * frames + f];
          }
        }
        const int f = static_cast<int>(frames), c = static_cast<int>(channels);
        MatrixConversion::ToPlanar(planar.data(), in.data(), f, c, used);
        ASSERT_EQ(planar, expected_planar) << f << " frames, " << c << " channels";
        MatrixConversion::ToInterleave(interleaved.data(), in.data(), f, c, used);
        ASSERT_EQ(interleaved, expected_interleaved) << f << " frames, " << c << " channels";
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
