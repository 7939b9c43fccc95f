// What the virtualizer does to audio.
#include <gtest/gtest.h>

#include <limits>
#include <numbers>

#include "tests/upmix-lib/virtualizer_instance.h"
#include "upmix-lib/convolver.h"

namespace kelda::upmix_lib {
namespace {

constexpr double kMostError_db = -120.0;

std::vector<std::vector<float>> NoiseBlocks(std::size_t count, uint32_t seed) {
  std::vector<std::vector<float>> blocks;
  for (std::size_t i = 0; i < count; ++i) {
    blocks.push_back(Noise(kPlanes * kBlock, seed + static_cast<uint32_t>(i)));
  }
  return blocks;
}

// A tone on every plane, `phase_frames` into it.
std::vector<float> ToneBlock(std::size_t phase_frames) {
  std::vector<float> block(kPlanes * kBlock);
  for (std::size_t i = 0; i < block.size(); ++i) {
    const double frame = static_cast<double>(phase_frames + i % kBlock);
    block[i] = static_cast<float>(0.1 * std::sin(2.0 * std::numbers::pi * 440.0 * frame / 48000));
  }
  return block;
}

// The largest bend of a curve: a click stands out from a smooth tone.
double LargestBend(std::span<const float> curve) {
  double largest = 0.0;
  for (std::size_t i = 2; i < curve.size(); ++i) {
    largest = std::max(
        largest, std::abs(double{curve[i]} - 2.0 * double{curve[i - 1]} + double{curve[i - 2]}));
  }
  return largest;
}

void ExpectMatches(const Ears& ears, const std::array<std::vector<double>, kEars>& expected) {
  EXPECT_LT(ErrorDb(std::span<const float>(ears.left), std::span<const double>(expected[0])),
            kMostError_db);
  EXPECT_LT(ErrorDb(std::span<const float>(ears.right), std::span<const double>(expected[1])),
            kMostError_db);
}

TEST(Convolver, MatchesDirectConvolutionAtAnyLength) {
  for (const int taps : {1, 2, 129, 256, 257, 512, 1023, 1024, 1025, 2500}) {
    HrirSet set = NoiseHrirs(taps, 3);
    Convolver convolver(kPlanes, taps, set.responses);
    const auto blocks = NoiseBlocks(5, 30);
    Ears ears{std::vector<float>(5 * kBlock), std::vector<float>(5 * kBlock)};
    for (std::size_t b = 0; b < blocks.size(); ++b) {
      for (int plane = 0; plane < static_cast<int>(kPlanes); ++plane) {
        std::copy_n(blocks[b].data() + static_cast<std::size_t>(plane) * kBlock, kBlock,
                    convolver.input(plane));
      }
      convolver.Process(&ears.left[b * kBlock], &ears.right[b * kBlock]);
    }
    SCOPED_TRACE(taps);
    ExpectMatches(ears, DirectConvolution(set, blocks));
  }
}

// Kinds as callers send them (2,1,0,0; after a reset 1,0), and in any other order.
TEST(Virtualizer, MatchesDirectConvolutionWhateverTheKinds) {
  const HrirSet set = NoiseHrirs(256, 4);
  const std::vector<std::vector<int32_t>> orders = {
      {2, 1, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, {2, 2, 0, 1, 1, 2}};
  for (const auto& kinds : orders) {
    const VirtualizerInstance instance(set);
    const auto blocks = NoiseBlocks(kinds.size(), 40);
    Ears ears;
    for (std::size_t b = 0; b < blocks.size(); ++b) instance.Process(blocks[b], &ears, kinds[b]);
    SCOPED_TRACE(testing::PrintToString(kinds));
    ExpectMatches(ears, DirectConvolution(set, blocks));
  }
}

TEST(Virtualizer, TakesWhatIsBeyondTheValidFramesForSilence) {
  for (const int32_t frames : {0, 1, 500, 960, 1023}) {
    const HrirSet set = NoiseHrirs(256, 5);
    const VirtualizerInstance instance(set);
    auto blocks = NoiseBlocks(3, 50);
    Ears ears;
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      std::fill_n(&blocks[1][plane * kBlock] + frames, kBlock - static_cast<std::size_t>(frames),
                  std::numeric_limits<float>::quiet_NaN());
    }
    instance.Process(blocks[0], &ears, 2);
    instance.Process(blocks[1], &ears, 2, frames);
    instance.Process(blocks[2], &ears, 1);
    for (float& sample : blocks[1]) sample = std::isnan(sample) ? 0.0f : sample;
    SCOPED_TRACE(frames);
    ExpectMatches(ears, DirectConvolution(set, blocks));
  }
}

TEST(Virtualizer, FlagsMuteTheirPlanes) {
  const HrirSet set = NoiseHrirs(128, 6);
  const VirtualizerInstance instance(set);
  auto blocks = NoiseBlocks(3, 60);
  Ears ears;
  for (const auto& block : blocks) {
    instance.Process(block, &ears, 0, kBlockFrames, {0, 1, 0, -1, 0, 256, 0});
  }
  for (auto& block : blocks) {
    for (const std::size_t muted : {1u, 3u, 5u}) {
      std::fill_n(&block[muted * kBlock], kBlock, 0.0f);
    }
  }
  ExpectMatches(ears, DirectConvolution(set, blocks));
}

TEST(Virtualizer, FlushForgetsTheSignalOnly) {
  HrirSet set = NoiseHrirs(256, 7);
  set.room = {-10.0f, -10.0f, 0.1f, 4.0f, 5000.0f, {}};
  const VirtualizerInstance fresh(set), used(set);
  const auto blocks = NoiseBlocks(4, 70);
  Ears expected, before, after;
  for (const auto& block : blocks) {
    fresh.Process(block, &expected);
    used.Process(block, &before, 0, kBlockFrames, {1, 0, 0, 0, 0, 0, 0});
  }
  EXPECT_NE(before.left, expected.left);
  ASSERT_EQ(A0236(used.handle()), kOk);
  for (const auto& block : blocks) used.Process(block, &after);
  EXPECT_EQ(after.left, expected.left);
  EXPECT_EQ(after.right, expected.right);
}

TEST(Virtualizer, AddsNoLatencyAndKeepsPlanesAndInstancesApart) {
  // Each plane of each instance has a gain of its own at tap 0.
  HrirSet low = NoiseHrirs(1, 8), high = NoiseHrirs(1, 8);
  for (std::size_t i = 0; i < low.responses.size(); ++i) {
    low.responses[i] = static_cast<float>(i + 1) / 64.0f;
    high.responses[i] = -low.responses[i];
  }
  const VirtualizerInstance first(low), second(high);
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    std::vector<float> impulse(kPlanes * kBlock);
    impulse[plane * kBlock + 100] = 1.0f;
    Ears of_first, of_second;
    first.Process(impulse, &of_first);
    second.Process(impulse, &of_second);
    for (std::size_t n = 0; n < kBlock; ++n) {
      const float gain = n == 100 ? static_cast<float>(2 * plane + 1) / 64.0f : 0.0f;
      const float step = n == 100 ? 1.0f / 64.0f : 0.0f;
      EXPECT_NEAR(of_first.left[n], gain, 1e-6f) << plane << ", frame " << n;
      EXPECT_NEAR(of_first.right[n], gain + step, 1e-6f) << plane << ", frame " << n;
      EXPECT_NEAR(of_second.right[n], -gain - step, 1e-6f) << plane << ", frame " << n;
    }
  }
}

TEST(Virtualizer, BadSamplesAreSilence) {
  const HrirSet set = NoiseHrirs(256, 9);
  const VirtualizerInstance instance(set);
  auto blocks = NoiseBlocks(3, 90);
  const std::vector<std::size_t> places = {0, 1500, 3 * kBlock + 1023, 7 * kBlock - 1};
  const float bad[] = {std::numeric_limits<float>::quiet_NaN(),
                       std::numeric_limits<float>::infinity(), 1e30f, 1e-42f};
  auto damaged = blocks;
  for (std::size_t i = 0; i < places.size(); ++i) {
    damaged[1][places[i]] = bad[i];
    blocks[1][places[i]] = 0.0f;
  }
  Ears ears;
  for (const auto& block : damaged) instance.Process(block, &ears);
  ExpectMatches(ears, DirectConvolution(set, blocks));
}

TEST(Virtualizer, SilenceFollowsTheTailExactly) {
  HrirSet set = NoiseHrirs(256, 10);
  set.room = {-10.0f, -10.0f, 0.2f, 5.0f, 5000.0f, {}};
  const VirtualizerInstance instance(set);
  Ears ears;
  instance.Process(NoiseBlocks(1, 100)[0], &ears);
  const std::size_t tail_blocks = 14;  // decay, start and a grain of noise
  for (std::size_t b = 0; b < tail_blocks + 2; ++b) {
    instance.Process(std::vector<float>(kPlanes * kBlock), &ears);
  }
  EXPECT_NE(ears.left[5 * kBlock], 0.0f);
  for (std::size_t n = tail_blocks * kBlock; n < ears.left.size(); ++n) {
    ASSERT_EQ(ears.left[n], 0.0f) << n;
    ASSERT_EQ(ears.right[n], 0.0f) << n;
  }
}

TEST(Virtualizer, ChangesOfFlagsAndDataDoNotClick) {
  const HrirSet before = NoiseHrirs(256, 11), after = NoiseHrirs(512, 12);
  const VirtualizerInstance instance(before);
  Ears ears;
  std::size_t frames = 0;
  const auto render = [&](std::array<int32_t, kPlanes> flags) {
    instance.Process(ToneBlock(frames), &ears, 0, kBlockFrames, flags);
    frames += kBlock;
  };
  for (int i = 0; i < 3; ++i) render({});
  for (int i = 0; i < 3; ++i) render({1, 0, 0, 1, 0, 0, 1});
  for (int i = 0; i < 3; ++i) render({});
  for (const HrirSet& next : {NoiseHrirs(128, 14), after}) {  // The first is never heard.
    instance.Install(next);
    ASSERT_EQ(A0556(instance.handle()), kOk);
  }
  for (int i = 0; i < 3; ++i) render({});

  // Blocks 2, 5, 8 and 11 know no change.
  const std::span<const float> all(ears.left);
  double steady_bend = 0.0;
  for (const std::size_t block : {2u, 5u, 8u, 11u}) {
    steady_bend = std::max(steady_bend, LargestBend(all.subspan(block * kBlock, kBlock)));
  }
  EXPECT_LT(LargestBend(all.subspan(kBlock)), 1.25 * steady_bend);

  // It did change: the last block is what the new data make of the tone.
  const auto expected =
      DirectConvolution(after, {ToneBlock(frames - 2 * kBlock), ToneBlock(frames - kBlock)});
  EXPECT_LT(ErrorDb(std::span<const float>(ears.left).last(kBlock),
                    std::span<const double>(expected[0]).last(kBlock)),
            -100.0);
}

TEST(Virtualizer, FailedReloadLeavesThePreviousDataAudible) {
  const HrirSet set = NoiseHrirs(256, 13);
  const VirtualizerInstance instance(set);
  const auto blocks = NoiseBlocks(2, 130);
  Ears ears;
  instance.Process(blocks[0], &ears);
  instance.directory().Write("test.hki", "damaged");
  EXPECT_EQ(A0556(instance.handle()), kDataTooShort);
  int32_t error = 0, detail = 0;
  EXPECT_EQ(A0783(instance.handle(), &error, &detail), kOk);
  EXPECT_EQ(detail, kDataTooShort);
  instance.Process(blocks[1], &ears);
  ExpectMatches(ears, DirectConvolution(set, blocks));
}

}  // namespace
}  // namespace kelda::upmix_lib
