// What no call through the surface reaches: channel counts and blocks that the effect's
// own chain does not have, wrappers that are used with nothing loaded.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <limits>
#include <numeric>
#include <random>

#include "pipeline/audio_process_sequencer.h"
#include "pipeline/fadable_ring_buffer.h"
#include "pipeline/matrix_conversion.h"
#include "pipeline/pass_through_processor.h"
#include "processors/lum_hp_eq_lib.h"
#include "processors/lum_upmix_cinema_lib.h"
#include "processors/lum_virtualizer_lib.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

// Against the index formula: every count of channels, frames that no vector's width
// divides, blocks that start and end at any float, planes that are longer than the block.
TEST(MatrixConversionTest, AgreesWithTheIndexFormulaOnAwkwardSizes) {
  std::mt19937 random(test::NewSeed());
  for (const int frames : {1, 2, 3, 4, 5, 7, 8, 31, 65, 1023, 1024}) {
    for (int channels = 1; channels <= 33; channels += channels < 17 ? 1 : 16) {
      std::vector<int> table(static_cast<std::size_t>(channels));
      std::iota(table.begin(), table.end(), 0);
      for (const bool reordered : {false, true}) {
        if (reordered) {
          std::shuffle(table.begin(), table.end(), random);
        }
        const int* const used = reordered ? table.data() : nullptr;
        const auto in = test::Ramp(static_cast<unsigned>(frames * channels) + 1, 1);
        const int plane_frames = frames + channels % 2 * 3;
        std::vector<float> planar(static_cast<std::size_t>(plane_frames * channels) + 1);
        std::vector<float> interleaved(in.size());
        std::vector<float> expected_planar(planar), expected_interleaved(interleaved);
        for (int f = 0; f < frames; ++f) {
          for (int c = 0; c < channels; ++c) {
            const int to = table[static_cast<std::size_t>(c)];
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

TEST(MatrixConversionTest, AbortsAtAnIndexThatDoesNotFit) {
  const testing::KilledBySignal kAborted(SIGABRT);
  constexpr int kFar[] = {0, std::numeric_limits<int>::max()};
  std::vector<float> in(4), out(4);
  EXPECT_EXIT(MatrixConversion::ToPlanar(out.data(), in.data(), 1 << 30, 2, nullptr), kAborted, "");
  EXPECT_EXIT(MatrixConversion::ToPlanar(out.data(), in.data(), 2, 2, kFar), kAborted, "");
  EXPECT_EXIT(MatrixConversion::ToInterleave(out.data(), in.data(), 2, 2, kFar), kAborted, "");
}

TEST(SequencerTest, ReordersChannelsOnTheWayInOnly) {
  const std::vector<float> in13 = {2, 0, 1, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12};
  const std::vector<float> in16 = {2, 0, 1, 6, 7, 9, 8, 10, 11, 12, 14, 13, 15, 4, 5, 3};
  AudioProcessSequencer sequencer;
  for (const auto& expected : {in13, in16}) {  // the host's channel that plane c holds
    const auto channels = static_cast<unsigned>(expected.size());
    PassThroughProcessor stage(channels, channels, 3);
    std::list<AudioProcessor*> chain = {&stage}, empty;
    ASSERT_TRUE(sequencer.SetProcessorChain(&chain));
    EXPECT_FALSE(sequencer.SetProcessorChain(&empty));
    std::vector<float> in(3 * channels), out(3 * channels);
    for (std::size_t i = 0; i < in.size(); ++i) {
      in[i] = static_cast<float>(i % channels);
    }
    ASSERT_TRUE(sequencer.Process(in.data(), out.data(), 3));
    for (unsigned frame = 0; frame < 3; ++frame) {
      const auto first = out.begin() + frame * channels;
      EXPECT_EQ(std::vector<float>(first, first + channels), expected);
    }
  }
}

class FadableRingBufferTest : public test::DataDirTest {};

TEST_F(FadableRingBufferTest, WarnsOfBlocksThatAreAllSilenceAndInitCancels) {
  constexpr int kFrame = 2 * sizeof(float);
  FadableRingBuffer ring(2, 100 * kFrame, 0);
  const auto pass = [&](unsigned frames) {
    std::vector<float> block = test::Ramp(frames);
    char* const bytes = reinterpret_cast<char*>(block.data());
    ring.FadableEnqueue(bytes, static_cast<int>(frames) * kFrame);
    EXPECT_EQ(ring.Dequeue(bytes, 100 * kFrame), static_cast<int>(frames) * kFrame);
    return block;
  };
  ring.RequestFadingFrames(10, 70);
  EXPECT_EQ(pass(30), std::vector<float>(60));
  EXPECT_EQ(pass(40), std::vector<float>(80));  // ends with the silence: no warning
  ring.RequestFadingFrames(10, 70);
  ring.Init();
  EXPECT_EQ(pass(30), test::Ramp(30));
  EXPECT_EQ(test::TakeLog(), test::Lines{"W/KELAPutil: Number of frames 30 is shorter than "
                                         "delayed frames and remaining: 40."});
}

class WrappersTest : public test::DataDirTest {};

// Until the library has destroyed an instance it is asked again, at the end at the latest.
TEST_F(WrappersTest, KeepWhatTheLibraryDoesNotDestroy) {
  WriteTuning();
  for (const char* const entry : {"A0812", "A0810", "A0213"}) {
    fake::Fail(entry, -7, 0, 1);
  }
  {
    LumHpEqLib equalizer;
    LumVirtualizerLib virtualizer(7);
    LumUpmixCinemaLib cinema;
    EXPECT_TRUE(equalizer.LoadConfig(Path("wired.ba.config")));
    EXPECT_TRUE(virtualizer.LoadConfig(Path("wired.hki.config")));
    EXPECT_TRUE(cinema.LoadConfig(Path("wired.hki.config"), Path("upmix.cinema.hps.bin")));
    equalizer.Finish();
    virtualizer.Finish();
    cinema.Finish();
    EXPECT_TRUE(equalizer.HasHandle());
    EXPECT_TRUE(virtualizer.HasHandle());
    EXPECT_EQ(fake::LiveInstances(), 3);
  }
  EXPECT_EQ(fake::LiveInstances(), 0);
}

}  // namespace
}  // namespace kelda
