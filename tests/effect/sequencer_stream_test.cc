// What comes out of the sequencer for what went in, whatever the host's blocks.
#include <gtest/gtest.h>

#include <random>

#include "pipeline/audio_process_sequencer.h"
#include "tests/effect/scripted_processor.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Script;
using test::ScriptedProcessor;

// A bound sequencer with the stages of `scripts`, and the stream that its chain
// makes of a ramp.
struct Stream {
  explicit Stream(const std::vector<Script>& scripts) {
    for (const Script& script : scripts) {
      stages.push_back(std::make_unique<ScriptedProcessor>(script));
      chain.push_back(stages.back().get());
      period = std::max(period, script.period);
    }
    sequencer.SetProcessorChain(&chain);
    channels = scripts.front().in;
  }

  // Feeds one block of the ramp, in place on request; exact-size buffers.
  std::vector<float> Feed(unsigned frames, bool in_place, bool* delivered) {
    std::vector<float> in = test::Ramp(frames, channels, fed);
    std::vector<float> out(in.size(), 12345.0f);
    fed += frames;
    *delivered = sequencer.Process(in.data(), in_place ? in.data() : out.data(), frames);
    return in_place ? in : out;
  }

  AudioProcessSequencer sequencer;
  std::vector<std::unique_ptr<AudioProcessor>> stages;
  std::list<AudioProcessor*> chain;
  unsigned period = 0;
  unsigned channels = 0;
  unsigned fed = 0;
};

// Frame f, channel c of what the ramp becomes after gain and a 100-frame echo.
float Expected(unsigned frame, unsigned c, float gain, float echo) {
  const auto ramp = [&](unsigned f) {
    return (c % 2 == 0 ? 1.0f : -1.0f) * static_cast<float>(f + 1);
  };
  return gain * ramp(frame) + echo * (frame < 100 ? 0.0f : ramp(frame - 100));
}

// Runs blocks of the given sizes and checks every frame: which slices are silence
// follows from counting alone, and the rest is the chain's output in order.
void CheckStream(const Script& script, const std::vector<unsigned>& sizes, bool in_place) {
  Stream stream({script});
  const unsigned period = stream.period, slice_limit = 3 * period;
  unsigned taken = 0, delivered_frames = 0;
  bool ready = false;
  for (const unsigned frames : sizes) {
    bool delivered = false;
    const auto out = stream.Feed(frames, in_place, &delivered);
    bool expect_all = true;
    for (unsigned begin = 0; begin < frames; begin += slice_limit) {
      const unsigned slice = std::min(slice_limit, frames - begin);
      taken += slice;
      const unsigned queued = taken / period * period - delivered_frames;
      ready = ready || queued >= 2 * period;
      const bool silent = !ready || queued < slice;
      for (unsigned i = 0; i < slice * stream.channels; ++i) {
        const float expected = silent ? 0.0f
                                      : Expected(delivered_frames + i / stream.channels,
                                                 i % stream.channels, script.gain, script.echo);
        ASSERT_EQ(out[size_t{begin} * stream.channels + i], expected)
            << "block of " << frames << ", frame " << begin + i / stream.channels << ", delivered "
            << delivered_frames << ", period " << period;
      }
      if (!silent) delivered_frames += slice;
      expect_all = expect_all && !silent;
    }
    ASSERT_EQ(delivered, expect_all) << "block of " << frames;
  }
  std::string report;
  stream.sequencer.Dumpsys(&report);
  const auto line = [](const char* label, unsigned n) { return label + std::to_string(n) + "\n"; };
  EXPECT_NE(report.find(line("input  : ", taken)), std::string::npos) << report;
  EXPECT_NE(report.find(line("process: ", taken / period * period)), std::string::npos) << report;
  EXPECT_NE(report.find(line("output : ", delivered_frames)), std::string::npos) << report;
}

TEST(SequencerStreamTest, RandomBlocksLoseAndRepeatNothing) {
  std::mt19937 random(test::NewSeed());
  for (int run = 0; run < 60; ++run) {
    const unsigned largest = run % 3 == 0 ? 20000 : run % 3 == 1 ? 3100 : 700;
    std::vector<unsigned> sizes;
    for (unsigned total = 0; total < 150000;) {
      auto frames = static_cast<unsigned>(1 + random() % largest);
      if (random() % 8 == 0)
        frames = 3070 + static_cast<unsigned>(random() % 5);  // about the slice limit
      if (frames == 1024) continue;
      if (random() % 50 == 0) frames = 0;  // harmless
      sizes.push_back(frames);
      total += frames;
    }
    CheckStream({.gain = 2, .echo = 1}, sizes, run % 2 == 0);
  }
}

TEST(SequencerStreamTest, EverySizeAsAConstant) {
  for (unsigned frames = 1; frames <= 500; ++frames) {
    if (frames == 16) continue;
    CheckStream({.in = 1, .out = 1, .period = 16, .gain = 2}, std::vector<unsigned>(60, frames),
                frames % 2 == 0);
  }
  for (unsigned frames = 2049; frames <= 3072; ++frames) {
    CheckStream({.in = 1, .out = 1, .gain = 2}, std::vector<unsigned>(14, frames), true);
  }
}

TEST(SequencerStreamTest, APeriodGoesStraightThroughAndLeavesTheRingsAlone) {
  Stream stream({Script{.gain = 2}, Script{.gain = -3}});
  bool delivered = false;
  for (const bool in_place : {false, true}) {
    const auto in = test::Ramp(1024, 2, stream.fed);
    const auto out = stream.Feed(1024, in_place, &delivered);
    EXPECT_TRUE(delivered);
    for (size_t i = 0; i < in.size(); ++i) ASSERT_EQ(out[i], -6 * in[i]);
  }
  // What waits in the rings waits on while periods pass it by.
  const unsigned first = stream.fed;
  stream.Feed(3000, false, &delivered);
  EXPECT_FALSE(delivered);
  for (int i = 0; i < 3; ++i) stream.Feed(1024, false, &delivered);
  const auto out = stream.Feed(1100, false, &delivered);
  EXPECT_TRUE(delivered);
  const auto waited = test::Ramp(1100, 2, first);
  for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], -6 * waited[i]);
}

TEST(SequencerStreamTest, AFadeWaitsForABlockThatIsNoPeriodAndAFlushForgetsIt) {
  for (const bool flush : {false, true}) {
    Stream stream({Script{}});
    bool delivered = false;
    stream.sequencer.RequestFadeInOut();
    EXPECT_EQ(stream.Feed(1024, false, &delivered), test::Ramp(1024));
    if (flush) stream.sequencer.Flush();
    const unsigned first = stream.fed;
    const auto out = stream.Feed(3000, false, &delivered);
    EXPECT_FALSE(delivered);
    const auto next = stream.Feed(1000, false, &delivered);
    ASSERT_TRUE(delivered);
    const auto in = test::Ramp(1000, 2, first);
    EXPECT_EQ(next[0], flush ? in[0] : 0.0f);
    EXPECT_EQ(next[1998] == in[1998], flush);
  }
}

}  // namespace
}  // namespace kelda
