#include "pipeline/ring_buffer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <deque>
#include <random>

#include "pipeline/fadable_ring_buffer.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

// The gains as the ramps define them, written down once more.
float FadeInGain(int p, int length) {
  return static_cast<float>((1 - std::cos(3.141592653589793 * p / length)) * 0.5);
}
float FadeOutGain(int age, int n) {
  return static_cast<float>((std::cos(3.141592653589793 * (n - age) / n) + 1) * 0.5);
}

TEST(RingBufferTest, IsAFifoAtAnySizesAcrossItsWrap) {
  std::mt19937 random(test::NewSeed());
  for (const int capacity : {2, 3, 7, 64, 65}) {
    RingBuffer ring(capacity, 0);
    std::deque<char> model;
    char next = 0;
    for (int step = 0; step < 500; ++step) {
      const int in = static_cast<int>(random() % static_cast<unsigned>(ring.FreeSize()));
      std::vector<char> data(static_cast<size_t>(in));
      for (char& byte : data) model.push_back(byte = next++);
      if (in > 0) ring.Enqueue(data.data(), in);
      const int stored = static_cast<int>(model.size());
      ASSERT_EQ(ring.Size(), stored);
      ASSERT_EQ(ring.ReadAvail(), stored);
      ASSERT_EQ(ring.FreeSize(), capacity - stored);
      ASSERT_TRUE(ring.HaveData(stored) && !ring.HaveData(stored + 1) && ring.HaveData(-1));

      std::vector<char> out(1 + random() % static_cast<unsigned>(capacity));
      const int asked = static_cast<int>(out.size());
      const int count = ring.Dequeue(out.data(), asked);
      ASSERT_EQ(count, std::min(stored, asked));
      for (int i = 0; i < count; ++i, model.pop_front()) {
        ASSERT_EQ(out[static_cast<size_t>(i)], model.front());
      }
    }
  }
}

TEST(RingBufferTest, LatchesReadyUntilInit) {
  EXPECT_TRUE(RingBuffer(8, 0).IsReady());
  RingBuffer ring(8, 4);
  ring.Enqueue("abc", 3);
  EXPECT_FALSE(ring.IsReady());
  ring.Enqueue("d", 1);
  EXPECT_TRUE(ring.IsReady());
  char out[4];
  EXPECT_EQ(ring.Dequeue(out, 4), 4);
  EXPECT_TRUE(ring.IsReady());
  ring.Enqueue("ef", 2);
  ring.Init();
  EXPECT_FALSE(ring.IsReady());
  EXPECT_EQ(ring.Size(), 0);
}

class FadableRingBufferTest : public test::DataDirTest {
 protected:
  static constexpr int kFrame = 2 * sizeof(float);

  static void Enqueue(FadableRingBuffer* ring, std::vector<float>* block) {
    if (block->empty()) return;
    ring->FadableEnqueue(reinterpret_cast<char*>(block->data()),
                         static_cast<int>(block->size() * sizeof(float)));
  }
  static std::vector<float> Dequeue(FadableRingBuffer* ring) {
    std::vector<float> out(static_cast<size_t>(ring->Size()) / sizeof(float));
    if (!out.empty()) ring->Dequeue(reinterpret_cast<char*>(out.data()), ring->Size());
    return out;
  }
};

TEST_F(FadableRingBufferTest, FadesOutTheNewestFramesWhereverTheyLie) {
  for (const int start : {0, 1, 130, 199}) {  // of a capacity of 200 frames
    for (const auto& [queued, fade] :
         {std::pair{100, 4800}, {100, 30}, {100, 100}, {1, 4800}, {199, 4800}, {0, 4800}}) {
      FadableRingBuffer ring(2, 200 * kFrame, 0);
      auto shift = test::Ramp(static_cast<unsigned>(start));
      Enqueue(&ring, &shift);
      Dequeue(&ring);
      auto block = test::Ramp(static_cast<unsigned>(queued));
      Enqueue(&ring, &block);
      ring.RequestFadingFrames(static_cast<unsigned>(fade), 0);
      const std::vector<float> out = Dequeue(&ring);
      ASSERT_EQ(out.size(), block.size());
      const int n = std::min(queued, fade);
      for (int f = 0; f < queued; ++f) {
        const int age = queued - 1 - f;
        const float gain = age < n ? FadeOutGain(age, n) : 1.0f;
        const auto i = size_t{2} * static_cast<unsigned>(f);
        ASSERT_EQ(out[i], block[i] * gain) << "start " << start << " n " << n << " frame " << f;
        ASSERT_EQ(out[i + 1], block[i + 1] * gain);
      }
      if (n > 0) {
        EXPECT_EQ(out.back(), 0.0f);  // so that the gains above are not all 1
      }
    }
  }
}

TEST_F(FadableRingBufferTest, FadesInTheSameHoweverTheBlocksAreCut) {
  constexpr int kSilence = 70;
  constexpr int kFade = 300;
  for (const unsigned block_frames : {1u, 7u, 64u, 70u, 71u, 370u, 371u, 500u}) {
    FadableRingBuffer ring(2, 501 * kFrame, 0);
    ring.RequestFadingFrames(kFade, kSilence);
    for (unsigned f = 0; f < 500; f += block_frames) {
      auto block = test::Ramp(std::min(block_frames, 500 - f), 2, f);
      Enqueue(&ring, &block);
    }
    const auto in = test::Ramp(500);
    const auto out = Dequeue(&ring);
    ASSERT_EQ(out.size(), in.size());
    for (int i = 0; i < 1000; ++i) {
      const int p = i / 2 - kSilence;
      const float gain = p < 0 ? 0.0f : p < kFade ? FadeInGain(p, kFade) : 1.0f;
      const auto at = static_cast<size_t>(i);
      ASSERT_EQ(out[at], in[at] * gain) << "blocks of " << block_frames << ", frame " << i / 2;
    }
  }
}

TEST_F(FadableRingBufferTest, WarnsOfBlocksThatAreAllSilence) {
  FadableRingBuffer ring(2, 100 * kFrame, 0);
  ring.RequestFadingFrames(10, 70);
  auto block = test::Ramp(30);
  Enqueue(&ring, &block);
  EXPECT_EQ(block, std::vector<float>(60));
  ring.FadeIn(reinterpret_cast<char*>(block.data()), kFrame - 1);  // no whole frame
  const std::string text = "W/KELAPutil: Number of frames ";
  EXPECT_EQ(test::TakeLog(), (Lines{text + "30 is shorter than delayed frames and remaining: 40.",
                                    text + "0 is shorter than delayed frames and remaining: 40."}));
  block = test::Ramp(40);
  Enqueue(&ring, &block);
  EXPECT_EQ(block, std::vector<float>(80));  // ends with the silence: no warning
  EXPECT_EQ(test::TakeLog(), Lines{});
}

TEST_F(FadableRingBufferTest, ANewRequestRestartsAndInitCancels) {
  FadableRingBuffer ring(2, 200 * kFrame, 0);
  ring.RequestFadingFrames(20, 0);
  auto block = test::Ramp(15);
  Enqueue(&ring, &block);
  Dequeue(&ring);
  ring.RequestFadingFrames(20, 1);
  block = test::Ramp(30);
  Enqueue(&ring, &block);
  const auto in = test::Ramp(30);
  for (int f = 0; f < 30; ++f) {
    const float gain = f < 1 ? 0.0f : f < 21 ? FadeInGain(f - 1, 20) : 1.0f;
    EXPECT_EQ(block[static_cast<size_t>(2 * f)], in[static_cast<size_t>(2 * f)] * gain) << f;
  }
  ring.RequestFadingFrames(20, 5);
  ring.Init();
  block = test::Ramp(30);
  Enqueue(&ring, &block);
  EXPECT_EQ(Dequeue(&ring), in);
}

}  // namespace
}  // namespace kelda
