// The wrappers around the signal library: what a life of each says when one of the
// library's entries fails, and what its blocks hold.
#include <gtest/gtest.h>

#include <algorithm>

#include "processors/lum_hp_eq_lib.h"
#include "processors/lum_upmix_cinema_lib.h"
#include "processors/lum_upmix_lib.h"
#include "processors/lum_virtualizer_lib.h"
#include "processors/upl.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

class WrappersTest : public test::DataDirTest {
 protected:
  WrappersTest() { WriteTuning(); }

  struct Failure {
    const char* entry;
    Lines log;  // without priority and tag, unless another's
  };

  // Lives `life` with each entry failing with -7, detail 42, and compares the log.
  template <class Life>
  void CheckFailures(const std::string& tag, const std::vector<Failure>& failures, Life life) {
    for (const Failure& failure : failures) {
      fake::Reset();
      if (failure.entry != nullptr) fake::Fail(failure.entry, -7, 42);
      life();
      Lines expected = failure.log;
      for (std::string& line : expected) {
        if (!line.starts_with("E/")) line.insert(0, "E/" + tag + ": ");
      }
      EXPECT_EQ(test::TakeLog(), expected)
          << (failure.entry != nullptr ? failure.entry : "nothing") << " fails";
      const std::string entry = failure.entry != nullptr ? failure.entry : "";
      const bool stays = entry == "A0812" || entry == "A0810" || entry == "A0213";
      EXPECT_EQ(fake::LiveInstances(), stays ? 1 : 0) << entry;
    }
  }

  // What the reader says when a failed size query has left the limit at 0.
  std::string TooBig(const std::string& name, uint32_t bytes) const {
    return "E/KelApUtil: File " + Path(name) + " is bigger than the maxSize " +
           std::to_string(bytes) + " > 0";
  }

  std::vector<float> in_ = test::Ramp(1024, 1);
  std::vector<float> out_ = std::vector<float>(2048, 7.0f);
  unsigned count_ = 99;
};

TEST_F(WrappersTest, EqualizerFailures) {
  const std::string init =
      "Failed to initialize library due to failure with error code -7. [detail code 42]";
  const std::string flush =
      "Failed to flush library due to failure with error code -7. [detail code 42]";
  const std::string close =
      "Failed to close library due to failure with error code -7. [detail code 42]";
  const std::string destroy = "Failed to destroy library due to failure with error code -7.";
  const std::string process =
      "Frame processing failed due to failure with error code -7.[detail code 42]";
  CheckFailures(
      "KELAPhpeq",
      {
          {nullptr, {}},
          {"A0507", {}},
          {"A0243",
           {"Failed to create library due to failure with error code -7.",
            "Unable to process frames for library because of null handle.",
            "Unable to flush library because of null handle."}},
          {"A0214",
           {init, "Frame processing failed due to failure with error code -1001.[detail code 42]"}},
          {"A0237", {flush, flush}},
          {"A0836", {process}},
          {"A0562", {close}},
          {"A0812", {destroy, destroy}},  // the destructor tries once more
      },
      [&] {
        LumHpEqLib equalizer;
        equalizer.LoadConfig(Path("wired.ba.config"));
        std::vector<float> in = test::Ramp(2048, 1);
        equalizer.Process(in.data(), 1024, out_.data(), &count_);
        equalizer.Reset();
        EXPECT_TRUE(equalizer.Finish());
      });
}

TEST_F(WrappersTest, EqualizerWorksInPlaceAndKeepsTheInputOfAFailedBlock) {
  LumHpEqLib equalizer;
  EXPECT_FALSE(equalizer.LoadConfig("no-root"));
  EXPECT_FALSE(equalizer.LoadConfig(""));
  EXPECT_EQ(test::TakeLog(),
            (Lines{"E/KELAPhpeq: Fails to initialize due to missing root path: no-root",
                   "E/KELAPhpeq: Fails to initialize due to missing root path: "}));
  EXPECT_FALSE(equalizer.Process(out_.data(), 1024, out_.data(), &count_));
  test::TakeLog();
  fake::TakeCalls();
  ASSERT_TRUE(equalizer.LoadConfig("/file"));
  ASSERT_TRUE(equalizer.LoadConfig(Path("b.config")));  // ends the first
  EXPECT_EQ(TakeCalls(), (Lines{"A0243  file", "A0214 1", "A0237 1", "A0562 1", "A0812 1",
                                "A0243 DIR b.config", "A0214 2", "A0237 2"}));

  std::vector<float> in = test::Ramp(2048, 1), expected(2048);
  for (size_t i = 0; i < 2048; ++i) expected[i] = i % 1024 < 3 ? 0.0f : 0.5f * in[i - 3];
  equalizer.OpenPcmData("raw");
  ASSERT_TRUE(equalizer.Process(in.data(), 1024, out_.data(), &count_));
  EXPECT_EQ(out_, expected);
  EXPECT_EQ(count_, 1024u);
  ASSERT_TRUE(equalizer.Reset());
  std::vector<float> same = in;
  ASSERT_TRUE(equalizer.Process(same.data(), 512, same.data(), &count_));
  EXPECT_EQ(same, expected);  // whole planes, whatever is asked for
  EXPECT_EQ(count_, 512u);
  equalizer.ClosePcmData();
  fake::Fail("A0836", -1);
  count_ = 5;
  EXPECT_FALSE(equalizer.Process(in.data(), 1024, out_.data(), &count_));
  EXPECT_EQ(out_, in);
  EXPECT_EQ(count_, 5u);
  const auto* const bytes = reinterpret_cast<const char*>(expected.data());
  EXPECT_TRUE(Read("rawfile_raw_hpeq.raw") == std::string(bytes, 8192) + std::string(bytes, 4096));
}

TEST_F(WrappersTest, VirtualizerFailures) {
  const auto text = [](const std::string& verb) {
    return "Failed to " + verb + " library due to failure with error code -7. [detail code 42]";
  };
  const std::string destroy = "Failed to destroy library due to failure with error code -7.";
  const std::string render = "Frame processing in library failed due to failure with error code ";
  CheckFailures("KelApUpmmLum",
                {{nullptr, {}},
                 {"A0779", {}},
                 {"A0782",
                  {"Failed to create library due to failure with error code -7.",
                   "Unable to process frames for library because of null handle.",
                   "Unable to flush for library because of null handle."}},
                 {"A0556", {text("initialize"), render + "-1001. [detail code 42]"}},
                 {"A0236", {text("flush"), text("flush")}},
                 {"A0560", {render + "-7. [detail code 42]"}},
                 {"A0212", {text("close")}},
                 {"A0810", {destroy, destroy}}},
                [&] {
                  LumVirtualizerLib virtualizer(7);
                  virtualizer.LoadConfig(Path("wired.hki.config"));
                  std::vector<float> in(7 * 1024);
                  EXPECT_TRUE(virtualizer.Process(in.data(), 1024, out_.data(), &count_));
                  EXPECT_EQ(count_, 1024u);
                  virtualizer.Reset();
                  EXPECT_TRUE(virtualizer.Finish());
                });
}

TEST_F(WrappersTest, VirtualizerTellsTheKindOfEachBlock) {
  LumVirtualizerLib virtualizer(7);
  EXPECT_FALSE(virtualizer.LoadConfig("no-root"));
  EXPECT_EQ(
      test::TakeLog(),
      Lines{
          "E/KelApUpmmLum: Music processor fails to initialize due to missing root path: no-root"});
  EXPECT_FALSE(virtualizer.HasHandle());
  ASSERT_TRUE(virtualizer.LoadConfig(Path("wired.hki.config")));
  EXPECT_TRUE(virtualizer.HasHandle());
  fake::TakeCalls();
  const std::vector<float> ones(7 * 1024, 1.0f);
  std::vector<float> in = ones;
  const auto render = [&](unsigned frames) {
    in = ones;
    EXPECT_TRUE(virtualizer.Process(in.data(), frames, out_.data(), &count_));
  };
  render(960);  // clears 64 floats, not frames, from float 7 x 960 on
  std::vector<float> cleared = ones;
  std::fill_n(cleared.begin() + 6720, 64, 0.0f);
  EXPECT_EQ(in, cleared);
  render(960);  // only the first block of a stream is shorter
  EXPECT_EQ(in, ones);
  EXPECT_EQ(out_, [] {
    std::vector<float> weights(2048, 10.0f);
    for (size_t i = 1; i < 2048; i += 2) weights[i] = 6.0f;
    return weights;
  }()) << "except what the first block cleared";
  render(1024);
  virtualizer.Reset();
  render(1024);
  render(1024);
  virtualizer.Eof();
  render(0);
  fake::Fail("A0560", -1);
  render(1024);
  EXPECT_EQ(out_, std::vector<float>(2048));  // a failed block is silent, and counts
  render(1024);
  EXPECT_EQ(TakeCalls(),
            (Lines{"A0560 2 960", "A0560 1 1024", "A0560 0 1024", "A0236 1001", "A0560 1 1024",
                   "A0560 0 1024", "A0560 2 0", "A0560 1 1024", "A0560 0 1024"}));
}

TEST_F(WrappersTest, MusicUpmixFailuresAndChunks) {
  const std::string read =
      "Reloading Library failed due to read " + Path("upmix.music.hps.bin") + " failed";
  const std::string process = "Frame processing in library failed due to failure with error code ";
  CheckFailures(
      "KelApUpmmLum",
      {{nullptr, {}},
       {"A0216", {}},
       {"A0511",
        {"Failed to obtain memory size for library due to failure with error code -7.",
         TooBig("upmix.music.hps.bin", fake::kMusicParamBytes),
         "Initialization of library failed due to a failure with error code -1002."}},
       {"A0559", {"Initialization of library failed due to a failure with error code -7."}},
       {"A0239", {process + "-7."}}},
      [&] {
        LumUpmixLib upmix;
        count_ = 99;
        const bool loaded = upmix.LoadConfig(Path("upmix.music.hps.bin"));
        std::vector<float> in = test::Ramp(64), out(7 * 64, 9.0f), expected(7 * 64);
        if (!loaded) return;
        const bool ok = upmix.Process(in.data(), 10, out.data(), &count_);
        for (size_t i = 0; ok && i < expected.size(); ++i) {
          expected[i] = static_cast<float>(i % 7 + 1) * in[i / 7 * 2 + i % 7 % 2];
        }
        EXPECT_EQ(out, expected);
        EXPECT_EQ(count_, ok ? 280u : 99u);  // bytes
      });
  for (const unsigned bytes : {0u, fake::kMusicParamBytes - 1, fake::kMusicParamBytes + 1}) {
    Write("upmix.music.hps.bin", std::string(bytes, 'x'));
    EXPECT_FALSE(LumUpmixLib().LoadConfig(Path("upmix.music.hps.bin")));
    EXPECT_EQ(test::TakeLog().back(), "E/KelApUpmmLum: " + read);
  }
}

TEST_F(WrappersTest, CinemaFailures) {
  const std::string sizes =
      "Failed to obtain memory size for the upm cinema library due to failure with error code ";
  const std::string create = "Initialization of the upm cinema library failed due to a failure.";
  const std::string null =
      "Unable to process frames for upm cinema library because of null handle.";
  const std::string flush =
      "Failed to flush the upm cinema library due to failure with error code ";
  const std::string destroy =
      "Failed to destroy the upm cinema library due to failure with error code -7.";
  CheckFailures(
      "KelApUpmcLum",
      {{nullptr, {}},
       {"A0244", {}},
       {"A0333",
        {sizes + "-7.", TooBig("upmix.cinema.hps.bin", fake::kCinemaParamBytes), create, null,
         flush + "-1001."}},
       {"A0218", {create, null, flush + "-1001."}},
       {"A0238",
        {"Frame processing in the upm cinema library failed due to failure with error code -7."}},
       {"A0593", {flush + "-7."}},
       {"A0213", {destroy, destroy}}},
      [&] {
        LumUpmixCinemaLib cinema;
        cinema.LoadConfig(Path("wired.hki.config"), Path("upmix.cinema.hps.bin"));
        std::vector<float> in = test::Ramp(2048, 1), out(2048, 7.0f);
        if (!cinema.Process(in.data(), 1024, out.data(), &count_)) {
          EXPECT_EQ(out, std::vector<float>(2048));
        }
        cinema.Flush();
        EXPECT_TRUE(cinema.Finish());
      });

  LumUpmixCinemaLib cinema;
  EXPECT_FALSE(cinema.LoadConfig("no-root", Path("missing")));
  Write("short.bin", "x");
  EXPECT_FALSE(cinema.LoadConfig(Path("wired.hki.config"), Path("short.bin")));
  EXPECT_EQ(
      test::TakeLog(),
      (Lines{
          "E/KelApUpmcLum: Cinema processor fails to initialize due to missing root path: no-root",
          "E/KelApUpmcLum: Reloading Cinema Library failed due to read short.bin failed"}));
  EXPECT_FALSE(cinema.Process(in_.data(), 512, out_.data(), &count_));
  EXPECT_TRUE(std::all_of(out_.begin(), out_.begin() + 1024, [](float x) { return x == 0; }));
  EXPECT_TRUE(std::all_of(out_.begin() + 1024, out_.end(), [](float x) { return x == 7; }));
}

TEST_F(WrappersTest, LevelControlFailures) {
  const std::string init =
      "Initialization of the level contorl library failed due to a failure with error code ";
  CheckFailures(
      "KelApUplLum",
      {{nullptr, {}},
       {"A0834", {}},
       {"A0557",
        {"Failed to obtain memory size for the level contorl library due to failure with error "
         "code -7.",
         TooBig("upl.music.bin", fake::kLevelParamBytes),
         "Loading Upl Library failed due to read upl.music.bin failed", init + "-1002."}},
       {"A0508", {init + "-7.", init + "-7."}},
       {"A0122",
        {"Configuration of the level contorl library failed due to failure with error code -7.",
         "Configuration of the level contorl library failed due to failure with error code -7."}},
       {"A0217",
        {"Frame processing in the level contorl library failed due to failure with error code "
         "-7."}}},
      [&] {
        Upl upl;
        const bool loaded = upl.LoadConfig(Path("upl.music.bin"));
        EXPECT_EQ(upl.LoadConfig(""), loaded);
        std::vector<float> in = test::Ramp(1024), out(2048, 7.0f), expected(2048, 7.0f);
        int frames = 1024;
        const int result = upl.ProcFrame(out.data(), in.data(), &frames);
        for (size_t i = 0; i < 2048; ++i) {
          if (!loaded) expected[i] = in[i];  // passed on
          if (result == 0) expected[i] = i < 4 ? 0 : 0.25f * in[i - 4];
        }
        EXPECT_EQ(out, expected);
      });
}

TEST_F(WrappersTest, LevelControlRules) {
  Upl upl;
  EXPECT_EQ(TakeCalls(), (Lines{"A0557", "A0834"}));
  EXPECT_EQ(Upl::GetUplDelay(), 48u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(upl.GetUplHandle()) % sizeof(void*), 0u);
  int frames = 100;
  std::vector<float> in = test::Ramp(1024), out(200);
  EXPECT_EQ(upl.ProcFrame(out.data(), in.data(), &frames), 2);  // unconfigured
  EXPECT_EQ(out, test::Ramp(100));
  EXPECT_EQ(upl.ProcFrame(in.data(), in.data(), &frames), 2);
  EXPECT_EQ(in, test::Ramp(1024));
  EXPECT_EQ(upl.ProcFrame(nullptr, in.data(), &frames), 2);
  EXPECT_EQ(upl.ProcFrame(out.data(), nullptr, &frames), 2);
  Write("short.bin", "short");  // any count but 0 will do
  EXPECT_TRUE(upl.LoadConfig(Path("short.bin")));
  out.resize(2048);
  EXPECT_EQ(upl.ProcFrame(out.data(), in.data(), &frames), 0);
  EXPECT_EQ(frames, 1024);
  Write("empty.bin", "");
  EXPECT_FALSE(upl.LoadConfig(Path("empty.bin")));
  EXPECT_EQ(upl.ProcFrame(out.data(), in.data(), &frames), 2);
  EXPECT_EQ(test::TakeLog(),
            Lines{"E/KelApUplLum: Loading Upl Library failed due to read empty.bin failed"});
  EXPECT_EQ(TakeCalls(), (Lines{"A0508 1024", "A0122 short"}));
}

}  // namespace
}  // namespace kelda
