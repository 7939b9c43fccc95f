#include "pipeline/matrix_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "tests/effect/test_support.h"

namespace kelda {
namespace {

// Against the index formula: every count of channels, frames that no vector's width
// divides, blocks that start and end at any float, planes that are longer than the block.
TEST(MatrixConversionTest, AgreesWithTheIndexFormulaOnAwkwardSizes) {
  std::mt19937 random(test::NewSeed());
  for (const int frames : {1, 2, 3, 4, 5, 7, 8, 31, 65, 1023, 1024}) {
    for (int channels = 1; channels <= 33; channels += channels < 17 ? 1 : 16) {
      std::vector<int> table(static_cast<size_t>(channels));
      std::iota(table.begin(), table.end(), 0);
      for (const bool reordered : {false, true}) {
        if (reordered) std::shuffle(table.begin(), table.end(), random);
        const int* const used = reordered ? table.data() : nullptr;
        const auto in = test::Ramp(static_cast<unsigned>(frames * channels) + 1, 1);
        const int plane_frames = frames + channels % 2 * 3;
        std::vector<float> planar(static_cast<size_t>(plane_frames * channels) + 1);
        std::vector<float> interleaved(in.size());
        std::vector<float> expected_planar(planar), expected_interleaved(interleaved);
        for (int f = 0; f < frames; ++f) {
          for (int c = 0; c < channels; ++c) {
            const int to = table[static_cast<size_t>(c)];
            (&expected_planar[1])[to * plane_frames + f] = (&in[1])[f * channels + c];
            (&expected_interleaved[1])[f * channels + to] = (&in[1])[c * frames + f];
          }
        }
        MatrixConversion::ToPlanes(&planar[1], plane_frames, &in[1], frames, channels, used);
        ASSERT_EQ(planar, expected_planar) << frames << " frames, " << channels << " channels";
        MatrixConversion::ToInterleave(&interleaved[1], &in[1], frames, channels, used);
        ASSERT_EQ(interleaved, expected_interleaved)
            << frames << " frames, " << channels << " channels";
      }
    }
  }
}

// Of channels that go to the same place the last one stays.
TEST(MatrixConversionTest, LeavesAloneWhatNoEntryNames) {
  const int same[] = {0, 1, 1, 0, 1, 2};
  const auto in = test::Ramp(6 * 5, 1);
  std::vector<float> planes(6 * 5, 99.0f);
  std::vector<float> slots(planes);
  MatrixConversion::ToPlanar(planes.data(), in.data(), 5, 6, same);
  MatrixConversion::ToInterleave(slots.data(), in.data(), 5, 6, same);
  for (size_t f = 0; f < 5; ++f) {
    EXPECT_EQ((std::vector{planes[f], planes[5 + f], planes[10 + f], planes[15 + f]}),
              (std::vector{in[6 * f + 3], in[6 * f + 4], in[6 * f + 5], 99.0f}));
    EXPECT_EQ(std::vector(&slots[6 * f], &slots[6 * f + 4]),
              (std::vector{in[15 + f], in[20 + f], in[25 + f], 99.0f}));
  }
  for (const auto& [frames, channels] : {std::pair{0, 2}, {2, 0}, {-1, 2}, {2, -1}}) {
    MatrixConversion::ToPlanar(nullptr, nullptr, frames, channels, nullptr);
    MatrixConversion::ToInterleave(nullptr, nullptr, frames, channels, nullptr);
  }
}

}  // namespace
}  // namespace kelda
