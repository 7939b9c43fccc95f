#include "tools/realigner.h"

#include <gtest/gtest.h>

#include "tools/failure.h"

namespace kelda::tools {
namespace {

// Pushes blocks whose frame for input n is (n + 1, -n - 1), and returns the left
// channel; the right one must be its negative.
std::vector<float> Realign(int64_t latency, const std::vector<std::vector<int64_t>>& blocks) {
  Realigner realigner(latency);
  std::vector<float> output;
  for (const auto& delivered : blocks) {
    std::vector<float> block;
    for (const int64_t input : delivered) {
      block.push_back(static_cast<float>(input + 1));
      block.push_back(static_cast<float>(-input - 1));
    }
    realigner.Push(block.data(), delivered, &output);
  }
  std::vector<float> left;
  for (size_t i = 0; i < output.size(); i += 2) {
    EXPECT_EQ(-output[i], output[i + 1]);
    left.push_back(output[i]);
  }
  return left;
}

TEST(Realigner, LeavesBufferingSilenceOut) {
  EXPECT_EQ((std::vector<float>{1, 2, 3, 4, 5}),
            Realign(0, {{-1, -1}, {0, 1}, {-1, -1, -1}, {2, 3, 4}, {-1}}));
}

TEST(Realigner, TakesTheLatencyOffTheFront) {
  EXPECT_EQ((std::vector<float>{4, 5, 6}), Realign(3, {{-1}, {0, 1}, {2, 3}, {4, 5}}));
}

TEST(Realigner, PutsZerosWhereAudioWasDropped) {
  EXPECT_EQ((std::vector<float>{1, 2, 0, 0, 5}), Realign(0, {{0, 1}, {-1, -1}, {4}}));
  EXPECT_EQ((std::vector<float>{0, 4, 5}), Realign(2, {{0, 1}, {3, 4}}));
}

TEST(Realigner, RefusesAudioOutOfOrder) {
  EXPECT_THROW(Realign(0, {{0, 1}, {4, 2}}), Failure);
  EXPECT_THROW(Realign(0, {{0, 1}, {1}}), Failure);
}

}  // namespace
}  // namespace kelda::tools
