// When the processors load, keep, drop and flush their instances, and what their
// blocks hold then.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "pipeline/pass_through_processor.h"
#include "processors/headphone_equalizer_processor.h"
#include "processors/upl_audio_processor.h"
#include "processors/upmix_cinema_processor.h"
#include "processors/upmix_music_processor.h"
#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

using test::Lines;

class ProcessorsTest : public test::DataDirTest {
 protected:
  ProcessorsTest() { WriteTuning(); }

  // The calls that `params` lead to. An empty value stays empty; any other is a
  // file of the tuning directory.
  Lines Set(AudioProcessor* processor, const ParameterMap& params) {
    fake::TakeCalls();
    ParameterMap paths;
    for (const auto& [key, value] : params) paths[key] = value.empty() ? value : Path(value);
    processor->SetParameters(paths);
    return TakeCalls();
  }
  Lines CallsOf(const std::function<void()>& action) {
    fake::TakeCalls();
    action();
    return TakeCalls();
  }
  static std::string Report(const AudioProcessor& processor) {
    std::string text = "+";
    processor.Dumpsys(&text);
    return text;
  }

  std::vector<float> in_ = test::Ramp(2 * 1024, 1);
  std::vector<float> out_ = std::vector<float>(2 * 1024, 7.0f);
};

TEST_F(ProcessorsTest, WhatTheySayOfThemselves) {
  PassThroughProcessor pass(2, 3, 1024);
  UpmixMusicProcessor music;
  UpmixCinemaProcessor cinema;
  HeadphoneEqualizerProcessor equalizer;
  UplAudioProcessor level;
  const struct {
    const AudioProcessor& processor;
    const char* name;
    unsigned in, out, delayed;
    bool ready;
    const char* report;
  } kRows[] = {{pass, "pass", 2, 3, 0, true, "+\n"},
               {music, "upmm", 7, 2, 96, false, "+hki=:, bin=\n"},
               {cinema, "upmc", 2, 2, 96, false, "+hki=:, bin=\n"},
               {equalizer, "hpeq", 2, 2, 0, false, "+ba=:\n"},
               {level, "upl", 2, 2, 48, false, "+bin=\n"}};
  for (const auto& row : kRows) {
    EXPECT_STREQ(row.processor.GetName(), row.name);
    EXPECT_EQ(row.processor.GetInputChannelCount(), row.in) << row.name;
    EXPECT_EQ(row.processor.GetOutputChannelCount(), row.out) << row.name;
    EXPECT_EQ(row.processor.GetMinPeriodFrames(), 1024u) << row.name;
    EXPECT_EQ(row.processor.GetDelayedFrames(), row.delayed) << row.name;
    EXPECT_TRUE(row.processor.IsEnabled()) << row.name;
    EXPECT_EQ(row.processor.IsReady(), row.ready) << row.name;
    EXPECT_EQ(Report(row.processor), row.report);
  }
  for (AudioProcessor* const idle :
       std::initializer_list<AudioProcessor*>{&music, &cinema, &equalizer, &level}) {
    fake::TakeCalls();
    EXPECT_FALSE(idle->Process(in_.data(), out_.data(), 1024));
    idle->Flush();
    EXPECT_EQ(out_, std::vector<float>(2048, 7.0f)) << idle->GetName();
    EXPECT_EQ(TakeCalls(), Lines{}) << idle->GetName();
  }
  EXPECT_TRUE(pass.Process(in_.data(), out_.data(), 0));
  EXPECT_EQ(out_[0], 7.0f);
  EXPECT_EQ(test::TakeLog(), Lines{});
}

TEST_F(ProcessorsTest, EqualizerLoadsAPathThatDiffers) {
  HeadphoneEqualizerProcessor equalizer;
  const char* const key = "ap_param_ba_config";
  EXPECT_EQ(Set(&equalizer, {{"other", "wired.ba.config"}}), Lines{});
  EXPECT_EQ(Set(&equalizer, {{key, "wired.ba.config"}}),
            (Lines{"A0243 DIR wired.ba.config", "A0214 1", "A0237 1"}));
  EXPECT_TRUE(equalizer.IsReady());
  EXPECT_EQ(Report(equalizer), "+ba=wired.ba.config:wired.ba\n");
  EXPECT_EQ(Set(&equalizer, {{key, "wired.ba.config"}}), Lines{});
  EXPECT_EQ(CallsOf([&] { equalizer.Flush(); }), Lines{"A0237 1"});
  EXPECT_EQ(CallsOf([&] { equalizer.SetEnabled(false); }), Lines{});  // no latency
  EXPECT_EQ(Set(&equalizer, {{key, "bluetooth.ba.config"}}),
            (Lines{"A0562 1", "A0812 1", "A0243 DIR bluetooth.ba.config", "A0214 2", "A0237 2"}));
  EXPECT_EQ(Set(&equalizer, {{key, ""}}), Lines{});  // the instance is kept
  EXPECT_FALSE(equalizer.IsReady());
  EXPECT_EQ(CallsOf([&] { equalizer.Restart(); }), Lines{});
  EXPECT_EQ(fake::LiveInstances(), 1);
  fake::Fail("A0214", -1);
  const Lines failing = {"A0562 2", "A0812 2", "A0243 DIR wired.ba.config", "A0214 3"};
  EXPECT_EQ(Set(&equalizer, {{key, "wired.ba.config"}}), failing);
  EXPECT_FALSE(equalizer.IsReady());
  EXPECT_EQ(Report(equalizer), "+ba=:\n");  // forgotten, and so tried again
  fake::Fail("A0214", 0);
  EXPECT_EQ(Set(&equalizer, {{key, "wired.ba.config"}}).size(), 5u);
  EXPECT_TRUE(equalizer.IsReady());
  test::TakeLog();

  EXPECT_TRUE(equalizer.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_[1023], 0.5f * in_[1020]);
  fake::Fail("A0836", -3, 4);
  EXPECT_FALSE(equalizer.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, in_);
  EXPECT_EQ(
      test::TakeLog(),
      (Lines{
          "E/KELAPhpeq: Frame processing failed due to failure with error code -3.[detail code 4]",
          "E/KELAPhpeq: Fails Process."}));
}

TEST_F(ProcessorsTest, MusicLoadsBothLibraries) {
  UpmixMusicProcessor music;
  const ParameterMap both = {{"ap_param_hki_config", "wired.hki.config"},
                             {"music_param_bin_file", "upmix.music.hps.bin"}};
  const Lines upmix = {"A0559 upmix.music.hps.bin"};
  const auto virtualizer = [](const std::string& n) {
    return Lines{"A0559 upmix.music.hps.bin", "A0782 DIR wired.hki.config", "A0556 " + n,
                 "A0236 " + n};
  };
  EXPECT_EQ(Set(&music, {{"cinema_param_bin_file", "upmix.cinema.hps.bin"}}), Lines{});
  EXPECT_EQ(Set(&music, {{"ap_param_hki_config", "wired.hki.config"}}), Lines{});  // no parameters
  EXPECT_EQ(test::TakeLog(),
            (Lines{"E/KelApUtil: Unable to stat  error code:-1\n",
                   "E/KelApUpmmLum: Reloading Library failed due to read  failed"}));
  EXPECT_EQ(Set(&music, both), virtualizer("1001"));
  EXPECT_TRUE(music.IsReady());
  EXPECT_EQ(Report(music), "+hki=wired.hki.config:standard.hki, bin=upmix.music.hps.bin\n");
  EXPECT_EQ(Set(&music, both), Lines{});
  EXPECT_EQ(CallsOf([&] { music.Flush(); }), Lines{"A0236 1001"});
  const Lines reloaded = {upmix[0],     "A0212 1001", "A0810 1001", "A0782 DIR wired.hki.config",
                          "A0556 1002", "A0236 1002"};
  EXPECT_EQ(CallsOf([&] { music.Restart(); }), reloaded);
  // The virtualizer stays as it was when the upmix already fails.
  fake::Fail("A0559", -1);
  EXPECT_EQ(CallsOf([&] { music.InitLib(); }), upmix);
  EXPECT_FALSE(music.IsReady());
  EXPECT_EQ(fake::LiveInstances(), 1);
  fake::Fail("A0559", 0);
  EXPECT_EQ(Set(&music, {{"music_param_bin_file", "upmix.music.hps.bin"}}).size(),
            6u);  // unchanged
  EXPECT_TRUE(music.IsReady());
  EXPECT_EQ(CallsOf([&] { music.SetEnabled(false); }), Lines{"A0236 1003"});  // has latency
}

TEST_F(ProcessorsTest, MusicBlocks) {
  UpmixMusicProcessor music;
  Set(&music, {{"ap_param_hki_config", "wired.hki.config"},
               {"music_param_bin_file", "upmix.music.hps.bin"}});
  // Left reaches planes 0, 2, 4, 6 as 1, 3, 5, 7 x, weighted 1, 2, 3, 4; right 1, 3, 5.
  const auto expected = [&](size_t plane_frames, size_t produced) {
    std::vector<float> out(2 * plane_frames, 7.0f);
    for (size_t f = 0; f < produced; ++f) {
      out[f] = f < 5 ? 0 : 50 * in_[f - 5];
      out[plane_frames + f] = f < 5 ? 0 : 28 * in_[plane_frames + f - 5];
    }
    return out;
  };
  EXPECT_TRUE(music.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, expected(1024, 1024));
  music.Flush();
  std::vector<float> out(2 * 1000, 7.0f);
  EXPECT_TRUE(music.Process(in_.data(), out.data(), 1000));  // the last 40 stay
  EXPECT_EQ(out, expected(1000, 960));
  out.assign(2 * 63, 7.0f);
  EXPECT_TRUE(music.Process(in_.data(), out.data(), 63));
  EXPECT_EQ(out, std::vector<float>(126, 7.0f));
  // 2048 frames a plane: one block of 1024 is made, no more.
  const std::vector<float> large = test::Ramp(2 * 2048, 1);
  in_ = large;
  out.assign(2 * 2048, 7.0f);
  music.Flush();
  EXPECT_TRUE(music.Process(in_.data(), out.data(), 2048));
  EXPECT_EQ(out, expected(2048, 1024));
  // A failed chunk is silence, a failed block too, and the stage goes on.
  fake::Fail("A0239", -1);
  EXPECT_TRUE(music.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(std::vector<float>(out_.begin() + 5, out_.begin() + 1024), std::vector<float>(1019));
  fake::Fail("A0239", 0);
  fake::Fail("A0560", -1);
  out_.assign(2048, 7.0f);
  EXPECT_TRUE(music.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, std::vector<float>(2048));
  EXPECT_EQ(test::TakeLog().size(), 17u);
}

TEST_F(ProcessorsTest, CinemaEndsItsInstanceFirst) {
  UpmixCinemaProcessor cinema;
  const std::string create = "A0218 upmix.cinema.hps.bin DIR wired.hki.config";
  const ParameterMap both = {{"ap_param_hki_config", "wired.hki.config"},
                             {"cinema_param_bin_file", "upmix.cinema.hps.bin"}};
  EXPECT_EQ(Set(&cinema, both), Lines{create});
  EXPECT_TRUE(cinema.IsReady());
  EXPECT_EQ(Report(cinema), "+hki=wired.hki.config:standard.hki, bin=upmix.cinema.hps.bin\n");
  EXPECT_EQ(Set(&cinema, both), Lines{});
  EXPECT_TRUE(cinema.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_[1023], 4 * in_[1024 + 1016]);
  EXPECT_EQ(out_[2047], 2 * in_[1016]);
  EXPECT_EQ(CallsOf([&] { cinema.Flush(); }), Lines{"A0593 1"});
  EXPECT_EQ(CallsOf([&] { cinema.Restart(); }), (Lines{"A0213 1", create}));
  EXPECT_EQ(Set(&cinema, {{"ap_param_hki_config", "bluetooth.hki.config"},
                          {"cinema_param_bin_file", "upmix.cinema.hpp.bin"}}),
            (Lines{"A0213 2", "A0218 upmix.cinema.hpp.bin DIR bluetooth.hki.config"}));
  fake::Fail("A0238", -1);
  EXPECT_FALSE(cinema.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, std::vector<float>(2048));
  std::filesystem::remove(Path("upmix.cinema.hps.bin"));
  EXPECT_EQ(Set(&cinema, both), Lines{"A0213 3"});
  EXPECT_FALSE(cinema.IsReady());
  EXPECT_EQ(fake::LiveInstances(), 0);
  WriteTuning();
  EXPECT_EQ(Set(&cinema, {{"ap_param_hki_config", "wired.hki.config"}}), Lines{create});
}

TEST_F(ProcessorsTest, LevelControlKeepsReadyThroughRestart) {
  UplAudioProcessor level;
  const char* const key = "upl_param_bin_file";
  const Lines music = {"A0508 1024", "A0122 upl.music.bin"};
  EXPECT_EQ(Set(&level, {{key, ""}}), Lines{});
  EXPECT_EQ(Set(&level, {{key, "missing.bin"}}), Lines{});
  EXPECT_EQ(test::TakeLog().back(),
            "E/KelApUplLum: Loading Upl Library failed due to read missing.bin failed");
  Write("missing.bin", "there now");
  EXPECT_EQ(CallsOf([&] { level.Restart(); }), (Lines{"A0508 1024", "A0122 there now"}));
  EXPECT_FALSE(level.IsReady());
  EXPECT_EQ(CallsOf([&] { level.InitLib(); }), (Lines{"A0508 1024", "A0122 there now"}));
  EXPECT_TRUE(level.IsReady());
  EXPECT_EQ(Set(&level, {{key, "upl.music.bin"}}), music);
  EXPECT_EQ(Set(&level, {{key, "upl.music.bin"}}), Lines{});
  EXPECT_EQ(Report(level), "+bin=upl.music.bin\n");
  std::filesystem::remove(Path("upl.music.bin"));
  EXPECT_EQ(CallsOf([&] { level.Flush(); }), music);  // from what it holds
  EXPECT_EQ(Set(&level, {{key, ""}}), Lines{});
  EXPECT_TRUE(level.IsReady());
  EXPECT_EQ(CallsOf([&] { level.Restart(); }), Lines{});

  EXPECT_TRUE(level.Process(in_.data(), out_.data(), 512));  // whole planes in any case
  EXPECT_EQ(out_[1023], 0.25f * in_[1021]);
  EXPECT_EQ(out_[2047], 0.25f * in_[2045]);
  fake::Fail("A0217", -1);
  EXPECT_TRUE(level.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, std::vector<float>(2048));
  fake::Fail("A0508", -1);
  level.Flush();  // leaves it unconfigured: the input passes
  EXPECT_TRUE(level.IsReady());
  EXPECT_TRUE(level.Process(in_.data(), out_.data(), 1024));
  EXPECT_EQ(out_, in_);
}

}  // namespace
}  // namespace kelda
