// The cockpit with the real effect, heard by nobody: a thread takes the place of the audio server.
#include <ebur128.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/cockpit/http_connection.h"
#include "tests/laboratory/audio_files.h"
#include "tests/laboratory/temporary_folder.h"
#include "tests/tools/program.h"
#include "tools/cockpit/blind_test.h"
#include "tools/cockpit/cockpit.h"
#include "tools/core/failure.h"
#include "tools/core/json.h"
#include "tools/replay/tunings.h"
#include "tools/tune/tuning_directory.h"

namespace kelda::tools {
namespace {

using Which = TuningModel::Which;

// Noise as music is made of: a centre, sides and a tail, louder in the second half.
std::vector<float> Programme(int64_t frames) {
  const Audio noise = Noise(frames, 3);
  std::vector<float> programme;
  float tail[2] = {};
  for (int64_t n = 0; n < frames; ++n) {
    const float* const at = &noise.samples[static_cast<std::size_t>(3 * n)];
    const float swing = 0.5f + 0.5f * std::sin(static_cast<float>(n) / 9000.0f);
    const float gain = n < frames / 2 ? 0.03f : 0.1f;
    for (std::size_t c = 0; c < 2; ++c) {
      tail[c] = 0.995f * tail[c] + 0.05f * at[1 + c];
      programme.push_back(gain * (swing * at[0] + 0.4f * at[1 + c] + tail[c]));
    }
  }
  return programme;
}

// Loudness of the last 8 s, by libebur128.
double Loudness(const std::vector<float>& stereo) {
  constexpr unsigned long kWindowMs = 8000;
  ebur128_state* state = ebur128_init(2, 48000, EBUR128_MODE_S);
  ebur128_set_max_window(state, kWindowMs);
  ebur128_add_frames_float(state, stereo.data(), stereo.size() / 2);
  double lufs = 0;
  EXPECT_EQ(ebur128_loudness_window(state, kWindowMs, &lufs), EBUR128_SUCCESS);
  ebur128_destroy(&state);
  return lufs;
}

TEST(MatchTest, IsTrueToATenthOfWhatIsRendered) {
  const TemporaryFolder folder;
  const std::vector<float> programme = Programme(int64_t{48000} * 24);
  WriteAudio(folder / "in.wav", {.samples = programme});
  const auto rendered = [&](const std::string& mode) {
    const ProgramResult result =
        RunKelda({"render", folder / "in.wav", folder / (mode + ".wav"), "--mode", mode});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return Loudness(ReadAudio(folder / (mode + ".wav")).samples);
  };
  const auto origin = OpenTuningDirectory(KELDA_DEFAULT_TUNING);
  const auto measured = [&](const std::string& a, const std::string& b) {
    SideRuns runs(true);
    for (const auto& [which, mode] : {std::pair(Which::kA, a), std::pair(Which::kB, b)}) {
      const Side side =
          MakeSide(origin, {ParseSetting("device=wired"), ParseSetting("mode=" + mode)});
      runs.Use(which, ChainFilesOf(side, UpmixMode::Off));
    }
    constexpr std::size_t kPiece = 700;
    for (std::size_t at = 0; at < programme.size(); at += 2 * kPiece) {
      runs.Process(&programme[at], &programme[at], std::min(kPiece, (programme.size() - at) / 2),
                   true, true);
    }
    const Match match = runs.MatchNow();
    for (std::size_t at = 0; at < programme.size() / 4; at += 2 * kPiece) {
      runs.Process(&programme[at], &programme[at], kPiece, true, false);
    }
    EXPECT_FALSE(runs.MatchNow().ready);  // while one side rests
    return match;
  };
  const double off = rendered("off"), music = rendered("music"), cinema = rendered("cinema");
  const Match upmixes = measured("music", "cinema"), bypass = measured("off", "music");
  EXPECT_TRUE(upmixes.ready && bypass.ready);
  EXPECT_GT(std::fabs(music - off), 1.0);  // there is something to match
  EXPECT_NEAR(music + upmixes.a_db, cinema + upmixes.b_db, 0.1);
  EXPECT_NEAR(off + bypass.a_db, music + bypass.b_db, 0.1);
  EXPECT_EQ(std::min(bypass.a_db, bypass.b_db) + std::max(bypass.a_db, bypass.b_db),
            -std::fabs(bypass.difference_lu));  // the louder one is made softer, the other not
}

TEST(MatchTest, CountsWhatWasHeardBeyondTheRuns) {
  const std::vector<float> programme = Programme(int64_t{48000} * 20);
  const auto side_of = [](const char* device) {
    return ChainFilesOf(MakeSide(OpenTuningDirectory(KELDA_DEFAULT_TUNING),
                                 {ParseSetting(std::string("device=") + device)}),
                        UpmixMode::Music);
  };
  // What is heard of each side, as often louder as given, beside a run of Off or of nothing.
  const auto measured = [&](bool open_library, const std::vector<float>& gains) {
    SideRuns runs(open_library);
    runs.Use(Which::kA, side_of("speaker"));
    runs.Use(Which::kB, side_of("wired"));
    double trim_db = 0;
    Which side = Which::kA;
    for (const float gain : gains) {
      runs.Hear(AudibleSide{side, trim_db});
      std::vector<float> heard(2 * changeover::Session::kLatencyFrames);
      const float trim = std::pow(10.0f, static_cast<float>(trim_db) / 20);
      std::transform(programme.begin(), programme.end(), std::back_inserter(heard),
                     [&](float sample) { return trim * gain * sample; });
      for (std::size_t at = 0; at + 2000 <= programme.size(); at += 2000) {
        runs.Process(&programme[at], &heard[at], 1000, true, true);
      }
      side = Which::kB;
      trim_db = -3;
    }
    return runs.MatchNow();
  };
  const Match runs_alone = measured(true, {1});
  ASSERT_TRUE(runs_alone.ready);
  EXPECT_NEAR(measured(true, {2}).difference_lu, runs_alone.difference_lu + 6.02, 0.02);
  EXPECT_FALSE(measured(false, {2}).ready);
  EXPECT_NEAR(measured(false, {2, 0.5}).difference_lu, 12.04, 0.02);
}

TEST(MeterTest, TellsLevelsAsTheyAre) {
  // A sine at -20 dBFS on the left, at -26 dBFS on the right, in step; between the samples it is
  // 3 dB higher than on them.
  SignalMeter meter;
  std::vector<float> tone;
  for (int n = 0; n < 48000 * 3; ++n) {
    const auto wave = static_cast<float>(std::sin(M_PI * (n / 2.0 + 0.25)));
    tone.push_back(0.1f * wave);
    tone.push_back(0.05f * wave);
  }
  meter.Add(tone.data(), tone.size() / 2);
  const Json shown = meter.Take();
  EXPECT_NEAR(shown.at("true_peak").get<double>(), -20.0, 0.2);
  EXPECT_NEAR(shown.at("correlation").get<double>(), 1.0, 0.01);
  EXPECT_NEAR(shown.at("balance").get<double>(), -0.6, 0.01);  // (1 - 4) / (1 + 4)
  ebur128_state* state = ebur128_init(2, 48000, EBUR128_MODE_S);
  ebur128_add_frames_float(state, tone.data(), tone.size() / 2);
  double momentary = 0, short_term = 0;
  ebur128_loudness_momentary(state, &momentary);
  ebur128_loudness_shortterm(state, &short_term);
  ebur128_destroy(&state);
  EXPECT_NEAR(shown.at("momentary").get<double>(), momentary, 0.02);
  EXPECT_NEAR(shown.at("short").get<double>(), short_term, 0.02);
  // 12 kHz lies in the band around 12.7 kHz; power of both channels.
  const Json& spectrum = shown.at("spectrum");
  ASSERT_EQ(spectrum.size(), 31u);
  EXPECT_NEAR(spectrum[28].get<double>(), 10 * std::log10(0.005 + 0.00125), 0.2);
  EXPECT_TRUE(spectrum[10].is_null() || spectrum[10].get<double>() < -80);
}

TEST(BlindTestTest, CountsAndSaysHowLikelyGuessingIs) {
  EXPECT_NEAR(GuessingP(9, 10), 11.0 / 1024, 1e-9);
  EXPECT_NEAR(GuessingP(12, 16), 2517.0 / 65536, 1e-9);
  EXPECT_NEAR(GuessingP(0, 7), 1, 1e-9);
  EXPECT_NEAR(GuessingP(0, 0), 1, 1e-9);
  bool heads = false;
  BlindTest test([&] { return heads = !heads; });  // B, A, B
  test.Take(Which::kB);
  test.Take(Which::kB);
  EXPECT_EQ(test.right(), 1u);
  EXPECT_EQ(test.trials(), 2u);
  EXPECT_EQ(test.last()->was, Which::kA);
}

// The advice that the page gives is what the signal library's README says.
TEST(AdviceTest, IsThatOfTheReadme) {
  std::ifstream file(std::string(KELDA_SOURCE) + "/upmix-lib/README.md");
  const std::string readme((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
  std::size_t at = 0, rows = 0;
  for (const char* const set : {"level-music", "music", "room", "cinema"}) {  // as they stand there
    at = readme.find("| parameter | turn it up for |", at + 1);
    ASSERT_NE(at, std::string::npos) << set;
    const std::string table = readme.substr(at, readme.find("\n\n", at) - at) + "\n";
    for (const ParameterMeaning& meaning : KnobSet(set).meanings) {
      const std::size_t key = table.find(std::string(1, '`').append(meaning.key).append("`"));
      ASSERT_NE(key, std::string::npos) << set << "." << meaning.key;
      const std::string row = table.substr(key, table.find('\n', key) - key);
      EXPECT_TRUE(row.ends_with(std::string(" | ").append(meaning.advice).append(" |"))) << row;
      ++rows;
    }
  }
  EXPECT_EQ(rows, 41u);
}

// An engine whose audio runs in real time, with a cockpit.
class CockpitTest : public testing::Test {
 protected:
  CockpitTest() {
    SetProperty("vendor.kelda.effect=1");
    const auto origin = OpenTuningDirectory(KELDA_DEFAULT_TUNING);
    std::vector<Setting> settings{ParseSetting("device=wired"), ParseSetting("mode=music")};
    const Side a = MakeSide(origin, settings);
    settings.push_back(ParseSetting("mode=off"));
    std::vector<TuningFile> files;
    for (const auto& [name, bytes] : a.files) {
      files.push_back({name, *bytes});
    }
    const std::string tuning = folder_ / (std::string(Cockpit::kTuningFolder) + "0");
    WriteTuningDirectory(tuning, files);
    tunings_ = std::make_unique<Tunings>(tuning);
    library_ = std::make_unique<EffectLibrary>(KELDA_EFFECT);
    engine_ = std::make_unique<LiveEngine>(
        *library_, tunings_.get(), LiveOptions{.settings = a.Settings(), .keep_warm = true});
    cockpit_ = std::make_unique<Cockpit>(CockpitOptions{.scratch = folder_.path()},
                                         TuningModel(a, MakeSide(origin, settings)), engine_.get(),
                                         nullptr, std::vector<std::filesystem::path>());
    const std::string address = cockpit_->address();
    port_ = std::stoi(address.substr(address.rfind(':') + 1));
    path_ = address.substr(address.find('/', 8));
    audio_ = std::thread([this] { Play(); });
  }
  ~CockpitTest() override {
    ending_ = true;
    audio_.join();
  }

  void Play() {
    constexpr std::size_t kQuantum = 256;
    const std::vector<float> programme = Programme(48000 * 4);
    auto next = std::chrono::steady_clock::now();
    std::vector<float> out(2 * kQuantum);
    for (std::size_t at = 0; !ending_;
         at = (at + 2 * kQuantum) % (programme.size() - 2 * kQuantum)) {
      engine_->Process(&programme[at], out.data(), kQuantum);
      next += std::chrono::microseconds(1000000 * kQuantum / 48000);
      std::this_thread::sleep_until(next);
    }
  }
  std::string Host() const { return "127.0.0.1:" + std::to_string(port_); }
  // The answer's JSON.
  Json Do(const std::string& json) const {
    HttpConnection connection(port_);
    connection.Send("POST " + path_ + "action HTTP/1.1\r\nHost: " + Host() + "\r\nOrigin: http://" +
                    Host() + "\r\nContent-Type: application/json\r\nContent-Length: " +
                    std::to_string(json.size()) + "\r\n\r\n" + json);
    const std::string answer = connection.ReadAll();
    return Json::parse(answer.substr(answer.find("\r\n\r\n")));
  }
  std::unique_ptr<HttpConnection> Listen() const {
    auto listener = std::make_unique<HttpConnection>(port_);
    listener->Send("GET " + path_ + "events HTTP/1.1\r\nHost: " + Host() + "\r\n\r\n");
    return listener;
  }
  // Events of a kind until one is as wanted, which is returned; null after 300 of them.
  static Json Await(HttpConnection* listener, const std::string& kind, const auto& wanted) {
    for (int events = 0; events < 300; ++events) {
      if (!listener->ReadUntil("event: " + kind + "\ndata: ")) {
        break;
      }
      const Json event = Json::parse(listener->ReadLine());
      if (wanted(event)) {
        return event;
      }
    }
    return nullptr;
  }

  TemporaryFolder folder_;
  std::unique_ptr<Tunings> tunings_;
  std::unique_ptr<EffectLibrary> library_;
  std::unique_ptr<LiveEngine> engine_;
  std::unique_ptr<Cockpit> cockpit_;
  int port_ = 0;
  std::string path_;
  std::atomic<bool> ending_{false};
  std::thread audio_;
};

TEST_F(CockpitTest, WhatTheyTurnIsHeardAndSeenByAll) {
  const auto one = Listen(), other = Listen();
  const auto number = [](const char* key) {
    return [key](const Json& event) { return event.at(key).is_number(); };
  };
  const auto level = [](const Json& state) {
    return state.at("sides").at("A").at("values").at("music").at("surround_level_db") == -20.0;
  };
  EXPECT_TRUE(
      Do(R"({"do":"knob","set":"music","key":"surround_level_db","value":-20,"gesture":"g"})")
          .at("version")
          .is_number());
  const Json seen = Await(one.get(), "state", level);
  EXPECT_EQ(seen.at("undo"), 1);
  EXPECT_EQ(seen.at("sides").at("A").at("changed"), Json({"music.surround_level_db"}));
  EXPECT_EQ(Await(other.get(), "state", level).at("version"), seen.at("version"));
  EXPECT_FALSE(Await(one.get(), "meters", number("heard_after_ms")).is_null());
  // What is heard is what the file says.
  EXPECT_EQ(engine_->State().trouble, "");
  EXPECT_FALSE(engine_->State().changing);
  const auto heard = OpenTuningDirectory(tunings_->last());
  const Side side = MakeSide(heard, {ParseSetting("device=wired")});
  EXPECT_EQ(SlotOf(side, "music").Value(heard->files, 5), -20.0f);
  const Json meters = Await(one.get(), "meters", [](const Json& event) {
    return event.at("planes").is_array() && event.at("in").at("momentary").is_number();
  });
  EXPECT_LT(meters.at("planes")[3].get<double>(), meters.at("planes")[2].get<double>() - 10);

  // The other side, as loud.
  Await(one.get(), "state", [](const Json& state) { return state.at("match").at("ready"); });
  Do(R"({"do":"side","side":"B"})");
  const Json off = Await(one.get(), "state", [](const Json& state) {
    return state.at("plays") == "off" && state.at("changing") == false;
  });
  ASSERT_FALSE(off.is_null());
  EXPECT_EQ(off.at("match").at("b_db"), 0.0);
  EXPECT_LT(off.at("match").at("a_db").get<double>(), -1.0);

  // Nobody is told what X is.
  Do(R"({"do":"blind","on":true})");
  const Json blind =
      Await(other.get(), "state", [](const Json& state) { return state.at("blind").at("on"); });
  for (const char* const key : {"side", "plays", "changing", "why"}) {
    EXPECT_TRUE(blind.at(key).is_null()) << key;
  }
  EXPECT_TRUE(Await(other.get(), "meters", [](const Json& event) {
                return event.at("out").is_null() && event.at("planes").is_null() &&
                       event.at("heard_after_ms").is_null();
              }).is_object());
  EXPECT_TRUE(Do(R"({"do":"side","side":"A"})").contains("error"));
  Do(R"({"do":"answer","side":"A"})");
  Do(R"({"do":"blind","on":false})");
  for (const char* const wrong :
       {"", "[]", R"({"do":"fly"})", R"({"do":"save"})", R"({"do":"knob","set":"music"})",
        R"({"do":"set","key":"mode","value":"loud"})", R"({"do":"seek","seconds":1})",
        R"({"do":"side","side":"C"})"}) {
    EXPECT_TRUE(Do(wrong).contains("error")) << wrong;
  }
}

}  // namespace
}  // namespace kelda::tools
