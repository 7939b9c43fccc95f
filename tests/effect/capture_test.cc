// The capture files, and how the sequencer feeds them.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <regex>

#include "diagnostics/pcm_data_dump.h"
#include "diagnostics/pcm_dump.h"
#include "pipeline/audio_process_sequencer.h"
#include "pipeline/pass_through_processor.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

std::string Bytes(const std::vector<float>& samples) {
  return {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(float)};
}

class CaptureTest : public test::DataDirTest {};

TEST_F(CaptureTest, NameIsTheLocalTime) {
  const auto name_of = [](std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    char name[64];
    std::strftime(name, sizeof(name), "pcmdump_%Y_%m%d_%H%M_%S.pcm", &local);
    return std::string(name);
  };
  // The second may change between the two readings of the clock.
  const std::time_t before = std::time(nullptr);
  const std::string name = PcmDump::GenerateFileName();
  bool matches = false;
  for (std::time_t t = before; t <= std::time(nullptr); ++t) matches |= name == name_of(t);
  EXPECT_TRUE(matches) << name;
}

TEST_F(CaptureTest, TakesWholeBlocksUpToItsLimit) {
  const auto block = test::Ramp(48001);
  {
    PcmDump dump;
    EXPECT_EQ(dump.Open(Path("a.pcm"), 2, 1), 1);
    EXPECT_EQ(dump.Write(block[0], 40000), 1);
    EXPECT_EQ(dump.Write(block[0], 8001), 0);
    EXPECT_EQ(dump.Write(block[0], 8000), 1);
    EXPECT_EQ(dump.Write(block[0], 1), 0);
    EXPECT_EQ(dump.Close(), 1);
    EXPECT_EQ(test::TakeLog(),
              (Lines{"E/KelApsPcmd: Excess Dump Limit", "E/KelApsPcmd: Excess Dump Limit"}));
    errno = ENOENT;
    EXPECT_EQ(dump.Write(block[0], 1), 0);
    EXPECT_EQ(dump.Close(), 0);
    const std::string closed = "E/KelApsPcmd: No Open File: " + std::string(strerror(ENOENT));
    EXPECT_EQ(test::TakeLog(), (Lines{closed + "\n", closed + "\n"}));
  }
  const std::string once = Read("a.pcm");
  const std::string all = Bytes(block);
  EXPECT_TRUE(once == all.substr(0, 320000) + all.substr(0, 64000));

  // Appended to, by a dump that its destructor closes; no second allows no frame.
  {
    PcmDump dump;
    dump.Open(Path("a.pcm"), 2, 1);
    dump.Write(block[0], 1);
  }
  PcmDump none;
  none.Open(Path("a.pcm"), 2, 0);
  EXPECT_EQ(none.Write(block[0], 1), 0);
  EXPECT_TRUE(Read("a.pcm") == once + all.substr(0, 8));
}

TEST_F(CaptureTest, ReportsWhatItCannotOpen) {
  std::filesystem::create_directory(Path("dir.pcm"));
  PcmDump dump;
  EXPECT_EQ(dump.Open(Path("dir.pcm"), 2, 1), 0);
  EXPECT_EQ(dump.Open(Path("no/such.pcm"), 2, 1), 0);
  EXPECT_EQ(test::TakeLog(),
            (Lines{"E/KelApsPcmd: Failed to open: " + std::string(strerror(EISDIR)) + "\n",
                   "E/KelApsPcmd: Failed to open: " + std::string(strerror(ENOENT)) + "\n"}));
}

TEST_F(CaptureTest, ReportsAFullDisk) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
  const float sample = 1;
  PcmDump dump;
  ASSERT_EQ(dump.Open("/dev/full", 1, 1), 1);
  EXPECT_EQ(dump.Write(sample, 1), 1);
  EXPECT_EQ(dump.Close(), 0);
  EXPECT_EQ(dump.Close(), 0);  // and not closed twice
  const Lines log = test::TakeLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "E/KelApsPcmd: Failed to close: " + std::string(strerror(ENOSPC)) + "\n");
}

TEST_F(CaptureTest, RawDataFile) {
  Write("rawfile_test_hpeq.raw", "old content that is longer");
  const float samples[] = {1, 2, 3};
  {
    PcmDataDump dump;
    dump.Write(samples, 12);
    dump.Close();
    dump.Open("hpeq", "test");
    dump.Open("hpeq", "second");  // ignored
    dump.Write(samples, 8);
    dump.Write(samples + 2, 3);
  }
  EXPECT_EQ(Read("rawfile_test_hpeq.raw"), Bytes({1, 2, 3}).substr(0, 11));
  EXPECT_EQ(Files(), Lines{"rawfile_test_hpeq.raw"});
  setenv("KELDA_DATA_DIR", Path("missing").c_str(), 1);
  PcmDataDump dump;
  dump.Open("s", "n");
  dump.Write(samples, 8);
  EXPECT_EQ(test::TakeLog(),
            (Lines{"I/kelda_upm: Open file ('rawfile_test_hpeq.raw') for raw data output.",
                   "W/kelda_upm: Failed to open file ('rawfile_n_s.raw') for raw data output."}));
}

TEST_F(CaptureTest, TheSequencerCapturesWhatTheHostGot) {
  PassThroughProcessor pass(2, 2, 1024);
  std::list<AudioProcessor*> chain = {&pass};
  AudioProcessSequencer sequencer;
  sequencer.SetProcessorChain(&chain);
  std::string heard;
  const auto feed = [&](unsigned frames) {
    auto block = test::Ramp(frames);
    sequencer.Process(block.data(), block.data(), frames);
    return Bytes(block);
  };
  feed(1024);  // before the capture
  sequencer.StopPcmDump();
  sequencer.StartPcmDump(dir(), 1);
  // Silence while priming, straight through, in slices of which some are silent.
  for (const unsigned frames : {480u, 1024u, 7000u, 480u, 3840u}) heard += feed(frames);
  sequencer.StopPcmDump();
  feed(480);  // after it: no file, no message
  sequencer.StopPcmDump();
  EXPECT_EQ(test::TakeLog(), Lines{});
  ASSERT_EQ(Files().size(), 1u);
  EXPECT_TRUE(Read(Files()[0]) == heard);

  sequencer.StartPcmDump(Path("missing"), 1);
  const std::string failed = feed(1024);
  EXPECT_EQ(failed, Bytes(test::Ramp(1024)));
  const Lines log = test::TakeLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0].find("E/KelApsPcmd: Failed to open: "), 0u);
  EXPECT_EQ(log[1].find("E/KelApsPcmd: No Open File: "), 0u);
}

}  // namespace
}  // namespace kelda
