// What the sequencer does besides streaming: binding, emptying, its report.
#include "pipeline/audio_process_sequencer.h"

#include <gtest/gtest.h>

#include "pipeline/pass_through_processor.h"
#include "tests/effect/scripted_processor.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;
using test::Ramp;
using test::ScriptedProcessor;

TEST(SequencerTest, BindsCountsAndPeriodOfTheWholeChain) {
  // The widest input is in the middle: its 13 planes fit the work buffers exactly.
  ScriptedProcessor first({.in = 2, .out = 13, .period = 256});
  ScriptedProcessor second({.in = 13, .out = 13, .period = 1024});
  ScriptedProcessor third({.in = 13, .out = 3, .period = 512, .gain = 2});
  std::list<AudioProcessor*> chain = {&first, &second, &third};
  AudioProcessSequencer sequencer;
  ASSERT_TRUE(sequencer.SetProcessorChain(&chain));
  EXPECT_FALSE(sequencer.SetProcessorChain(nullptr));
  std::list<AudioProcessor*> empty;
  EXPECT_FALSE(sequencer.SetProcessorChain(&empty));
  const auto in = Ramp(1024);
  std::vector<float> out(3 * 1024);
  ASSERT_TRUE(sequencer.Process(in.data(), out.data(), 1024));
  for (size_t f = 0; f < 1024; ++f) {
    ASSERT_EQ(out[3 * f], 2 * in[2 * f]);
    ASSERT_EQ(out[3 * f + 1], 2 * in[2 * f + 1]);
    ASSERT_EQ(out[3 * f + 2], 2 * in[2 * f + 1]);  // from the last plane of two
  }
}

TEST(SequencerTest, ReordersChannelsOnTheWayInOnly) {
  const std::vector<float> in13 = {2, 0, 1, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12};
  const std::vector<float> in16 = {2, 0, 1, 6, 7, 9, 8, 10, 11, 12, 14, 13, 15, 4, 5, 3};
  for (const auto& expected : {in13, in16}) {  // the host's channel that plane c holds
    const auto channels = static_cast<unsigned>(expected.size());
    ScriptedProcessor disabled({.in = channels, .out = channels, .period = 2});
    disabled.SetEnabled(false);
    std::list<AudioProcessor*> chain = {&disabled};
    AudioProcessSequencer sequencer;
    sequencer.SetProcessorChain(&chain);
    std::vector<float> in(2 * channels), out(2 * channels);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>(i % channels);
    ASSERT_TRUE(sequencer.Process(in.data(), out.data(), 2));
    EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + channels), expected);
    EXPECT_EQ(std::vector<float>(out.begin() + channels, out.end()), expected);
  }
}

TEST(SequencerTest, RunsTheChainFromEitherBufferAndKeepsWhatAStageDoesNotWrite) {
  ScriptedProcessor twice({.gain = 2});
  ScriptedProcessor mute({.produces = false});
  ScriptedProcessor off({.gain = 100});
  off.SetEnabled(false);
  std::list<AudioProcessor*> chain = {&twice, &off, &mute};
  AudioProcessSequencer sequencer;
  sequencer.SetProcessorChain(&chain);
  std::vector<float> a = Ramp(1024), b(2048, 7.0f), zeros(2048);
  float* buffers[2] = {b.data(), a.data()};
  EXPECT_EQ(sequencer.invokeProcessorChain(buffers, 1, 1024), 1);  // two stages: back in a
  EXPECT_EQ(a, Ramp(1024));
  EXPECT_EQ(b[2047], 2 * a[2047]);

  // A stage that never writes: its buffer was zeroed when the chain was bound.
  std::list<AudioProcessor*> silent = {&mute};
  for (int binding = 0; binding < 2; ++binding) {
    sequencer.SetProcessorChain(&silent);
    std::vector<float> out(2048, 7.0f);
    sequencer.Process(a.data(), out.data(), 1024);
    EXPECT_EQ(out, zeros);
  }
}

TEST(SequencerTest, SumsLatencyOfEnabledStagesAndTellsEveryStage) {
  Lines journal;
  ScriptedProcessor a({.name = "a", .delayed = 96}, &journal);
  ScriptedProcessor b({.name = "b", .delayed = 48}, &journal);
  ScriptedProcessor c({.name = "c"}, &journal);
  std::list<AudioProcessor*> chain = {&a, &b, &c};
  AudioProcessSequencer sequencer;
  sequencer.SetProcessorChain(&chain);
  EXPECT_EQ(sequencer.GetDelayedFrames(), 144u);

  EXPECT_TRUE(a.SetEnabled(false));  // has latency: flushed, once
  EXPECT_TRUE(a.SetEnabled(false));
  EXPECT_TRUE(c.SetEnabled(false));
  EXPECT_TRUE(c.SetEnabled(true));
  EXPECT_EQ(std::exchange(journal, {}), Lines{"a flush"});
  EXPECT_EQ(sequencer.GetDelayedFrames(), 48u);

  sequencer.SetParameters({{"x", "y"}, {"z", ""}});
  sequencer.Flush();
  sequencer.Restart();
  sequencer.FlushWorkBuffer();
  EXPECT_EQ(journal, (Lines{"a params 2", "b params 2", "c params 2", "a flush", "b flush",
                            "c flush", "a restart", "b restart", "c restart"}));
}

TEST(SequencerTest, EmptyingDiscardsCountsAndPrimesAgain) {
  using Emptying = void (AudioProcessSequencer::*)();
  for (const Emptying empty : {&AudioProcessSequencer::Flush, &AudioProcessSequencer::Restart,
                               &AudioProcessSequencer::FlushWorkBuffer}) {
    PassThroughProcessor pass(2, 2, 1024);
    std::list<AudioProcessor*> chain = {&pass};
    AudioProcessSequencer sequencer;
    sequencer.SetProcessorChain(&chain);
    std::vector<float> block = Ramp(2600), out(5200);
    EXPECT_FALSE(sequencer.Process(block.data(), out.data(), 2600));  // 2048 queued, 552 wait
    (sequencer.*empty)();
    EXPECT_FALSE(sequencer.Process(block.data(), out.data(), 1500));  // 1024 queued
    EXPECT_FALSE(sequencer.Process(block.data(), out.data(), 500));
    ASSERT_TRUE(sequencer.Process(block.data(), out.data(), 100));  // 2100 in: ready again
    EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 200), Ramp(100));
    std::string report = "before\n";
    sequencer.Dumpsys(&report);
    EXPECT_EQ(report,
              "before\n"
              "  - AudioProcessSequencer:\n"
              "    input  : 4700\n"
              "    process: 4096\n"
              "    output : 100\n"
              "    discard: 2048\n"
              "    processors:\n"
              "      [*] pass: \n");
  }
}

TEST(SequencerTest, RebindingDropsWhatWasQueuedButKeepsTheCounters) {
  ScriptedProcessor before({.name = "x", .gain = 5, .report = "ten\n"});
  ScriptedProcessor after({.name = "longer", .in = 1, .out = 1, .period = 8, .report = "end\n"});
  before.SetEnabled(false);
  std::list<AudioProcessor*> chain = {&before};
  AudioProcessSequencer sequencer;
  sequencer.SetProcessorChain(&chain);
  std::vector<float> block = Ramp(3000), out(6000);
  sequencer.Process(block.data(), out.data(), 3000);
  chain = {&after, &before};
  before.SetEnabled(false);
  std::list<AudioProcessor*> small = {&after};
  sequencer.SetProcessorChain(&small);
  EXPECT_FALSE(sequencer.Process(block.data(), out.data(), 15));
  EXPECT_TRUE(sequencer.Process(block.data(), out.data(), 2));
  EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 2), (std::vector<float>{1, -1}));
  std::string report;
  sequencer.Dumpsys(&report);
  sequencer.SetProcessorChain(&chain);
  sequencer.Dumpsys(&report);
  const std::string head =
      "  - AudioProcessSequencer:\n    input  : 3017\n    process: 2064\n    output : 2\n"
      "    discard: 0\n    processors:\n      [*] longer: end\n";
  EXPECT_EQ(report, head + head + "      [ ] x   : ten\n");
}

}  // namespace
}  // namespace kelda
