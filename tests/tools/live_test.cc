// kelda live and kelda play with a real audio server, which needs no sound card: its outputs are
// null sinks.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <numbers>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/laboratory/audio_files.h"
#include "tests/laboratory/temporary_folder.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/core/failure.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/live/live_engine.h"
#include "tools/live/output_queue.h"
#include "tools/measure/step_detector.h"
#include "tools/replay/tunings.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {
namespace {

constexpr int kUsage = 2, kInput = 3, kOutput = 4, kIncomplete = 7;

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// What a shell's command prints.
std::string Output(const std::string& command) {
  std::string text;
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  char bytes[4096];
  for (std::size_t count = 0; (count = fread(bytes, 1, sizeof(bytes), pipe)) > 0;) {
    text.append(bytes, count);
  }
  pclose(pipe);
  return text;
}

bool Within20Seconds(const std::function<bool()>& done) {
  constexpr useconds_t kLookUs = 100'000;
  for (int tries = 0; tries < 200; ++tries, usleep(kLookUs)) {
    if (done()) {
      return true;
    }
  }
  return false;
}

// That the log makes what was heard of the same input.
void ExpectReplay(const std::string& log, const std::string& in, const std::vector<float>& heard) {
  const TemporaryFolder folder;
  Succeed({"render", "--host", "--replay", log, "--block", "random:1-4000", "--raw-timing", in,
           folder / "again.wav"});
  std::vector<float> replayed = ReadAudio(folder / "again.wav").samples;
  ASSERT_GE(replayed.size(), heard.size());
  replayed.resize(heard.size());
  EXPECT_GT(*std::max_element(heard.begin(), heard.end()), 0.1f);
  EXPECT_TRUE(replayed == heard)
      << "from frame "
      << (std::mismatch(heard.begin(), heard.end(), replayed.begin()).first - heard.begin()) / 2
      << " of " << heard.size() / 2;
}

// Steady tones: whatever does not go on smoothly stands out.
Audio Tones(int seconds) {
  Audio tones;
  for (int64_t frame = 0; frame < int64_t{48000} * seconds; ++frame) {
    for (const double pan : {0.3, 0.7}) {
      double sample = 0;
      for (const double freq_hz : {110.0, 277.0, 523.0}) {
        sample += 0.12 * pan *
                  std::sin(2 * std::numbers::pi * freq_hz * static_cast<double>(frame) / 48000);
      }
      tones.samples.push_back(static_cast<float>(sample));
    }
  }
  return tones;
}

// The frames at which the left channel jumps.
std::vector<int64_t> Steps(const std::vector<float>& stereo) {
  StepDetector detector;
  std::vector<int64_t> frames;
  const auto note = [&](const std::optional<Step>& step) {
    if (step) {
      frames.push_back(step->frame);
    }
  };
  for (std::size_t i = 0; i < stereo.size(); i += 2) {
    note(detector.Add(stereo[i]));
  }
  for (int i = 0; i < StepDetector::kFlushFrames; ++i) {
    note(detector.Flush());
  }
  return frames;
}

// As a graph whose quantum and rate change: what one side is ahead is taken out again, and what
// does not come is missed without a click.
TEST(OutputQueueTest, SoundGoesOnWithoutAClickAndNotLateForLong) {
  const std::vector<float> tones = Tones(30).samples;
  OutputQueue queue;
  std::vector<float> heard;
  std::size_t pushed = 0;
  const auto push = [&](std::size_t frames) {
    queue.Push(&tones[2 * pushed], frames);
    pushed += frames;
  };
  const auto take = [&](std::size_t frames) {
    heard.resize(heard.size() + 2 * frames);
    queue.Take(&heard[heard.size() - 2 * frames], frames);
  };
  // How many frames late the last ones are.
  const auto late = [&] {
    const auto end = tones.begin() + static_cast<std::ptrdiff_t>(2 * pushed);
    const auto found = std::find_end(tones.begin(), end, heard.end() - 256, heard.end());
    return (end - found) / 2 - 128;
  };
  for (const std::size_t quantum : {1024u, 64u, 279u, 2048u, 256u}) {
    for (std::size_t frame = 0; frame < 144000; frame += quantum) {
      push(quantum);
      take(quantum);
    }
    EXPECT_EQ(late(), OutputQueue::kSpareFrames) << quantum;
    take(quantum);  // nothing came in this cycle
    push(quantum / 2);
    take(quantum);
    push(6000);  // and then more than one's part
    for (int cycle = 0; cycle < 48000 / 256 + 2; ++cycle) {
      push(256);
      take(256);
    }
    take(6000);  // nothing while it is taken out
    push(6000);
  }
  EXPECT_EQ(Steps(heard), std::vector<int64_t>{});
  heard.resize(96000);
  heard[60000] += 0.1f;
  EXPECT_EQ(Steps(heard).size(), 1u);  // or nothing was looked for
}

TEST(CycleMeterTest, SlowCyclesAndXrunsAreCountedOnce) {
  CycleMeter meter;
  constexpr uint64_t kCycleNs = 5'333'333;  // 256 frames
  uint64_t thread_ns = 1;
  const auto begin = [&](uint32_t clock, uint64_t position, uint64_t spent_ns) {
    meter.Begin({clock, 48000, position, 256}, thread_ns);
    meter.Spend(spent_ns);
    thread_ns += spent_ns;
  };
  begin(1, 0, kCycleNs / 4);
  begin(1, 256, kCycleNs * 3 / 8);
  begin(1, 256, kCycleNs / 4);  // asked for more in the same cycle
  begin(1, 512, 0);
  begin(1, 1024, 0);    // one came too late
  begin(2, 700000, 0);  // another device's clock
  meter.Interrupt();
  begin(2, 800000, 0);
  const CycleFigures figures = meter.figures();
  EXPECT_EQ(figures.cycles, 3u);
  EXPECT_EQ(figures.slow, 1u);
  EXPECT_EQ(figures.xruns, 1u);
  EXPECT_NEAR(figures.worst, 0.625, 1e-3);
  EXPECT_NEAR(figures.mean, 0.875 / 3, 1e-3);
}

class LiveTest : public testing::Test {
 protected:
  LiveTest() {
    for (const char* const name :
         {"XDG_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "HOME"}) {
      setenv(name, folder_.path().c_str(), 1);
    }
  }
  ~LiveTest() override {
    if (server_ > 0) {
      kill(-server_, SIGTERM);
      waitpid(server_, nullptr, 0);
      EXPECT_TRUE(
          Within20Seconds([this] { return kill(-server_, 0) != 0; }));  // they use the folder
    }
  }

  // The server with the session manager and the output "first".
  void StartServer() {
    server_ = fork();
    if (server_ == 0) {
      setpgid(0, 0);
      if (freopen((folder_ / "server").c_str(), "w", stderr) == nullptr) {
        _exit(127);
      }
      execlp("dbus-run-session", "dbus-run-session", "--", "sh", "-c",
             "pipewire & sleep 0.5; wireplumber & wait", nullptr);
      _exit(127);
    }
    setpgid(server_, server_);
    ASSERT_TRUE(Within20Seconds([] { return Contains(Output("wpctl status"), "[export]"); }))
        << folder_.Read("server");
    MakeSink("first");
  }

  static void MakeSink(const std::string& name) {
    Output("pw-cli create-node adapter '{ factory.name=support.null-audio-sink node.name=" + name +
           " media.class=Audio/Sink object.linger=true audio.position=[FL FR] }'");
    EXPECT_TRUE(Within20Seconds([&] { return Contains(Output("pw-cli ls Node"), name); }));
  }
  static void SetGraph(int rate_hz, int quantum) {
    Output("pw-metadata -n settings 0 clock.force-rate " + std::to_string(rate_hz));
    Output("pw-metadata -n settings 0 clock.force-quantum " + std::to_string(quantum));
  }
  static std::string Default(const std::string& key) {
    return Output("pw-metadata 0 " + key +
                  ".audio.sink | sed -n 's/.*\"name\": *\"\\([^\"]*\\).*/\\1/p'");
  }
  static bool IsDefault(const std::string& name) {
    return Within20Seconds([&] { return Default("default") == name + "\n"; });
  }

  const TemporaryFolder folder_;
  pid_t server_ = -1;
};

// Settings, tunings and trims while audio plays, and after it what its log makes of the same input.
TEST(LiveEngineTest, TrimsAndTuningsAreHeardWithTheirCrossfadeAndReplayed) {
  const TemporaryFolder folder;
  const std::string log_file = folder / "log", other = folder / "other";
  std::filesystem::copy(KELDA_DEFAULT_TUNING, other);
  std::filesystem::copy(other + "/upl.cinema.bin", other + "/upl.music.bin",
                        std::filesystem::copy_options::overwrite_existing);
  SetProperty("vendor.kelda.effect=1");
  std::vector<float> in, heard;
  {
    // What is not a directory stays where the tunings would go, and the log before as it was.
    folder.Write("log", "before");
    folder.Write("log.tunings", "");
    EXPECT_THROW(TurnLog(log_file, KELDA_DEFAULT_TUNING), Failure);
    EXPECT_EQ("before", folder.Read("log"));
    std::filesystem::remove(log_file + ".tunings");
    TurnLog log(log_file, KELDA_DEFAULT_TUNING);
    Tunings tunings(log.kept());
    const EffectLibrary library(EFFECT_LIBRARY);
    LiveEngine engine(library, &tunings, {.settings = {ParseSetting("device=wired")}}, &log);
    LiveTap& tap = engine.AddTap();
    LiveTap& full = engine.AddTap();
    const Audio noise = Noise(48000 * 100);
    const auto play_until = [&](const std::function<bool()>& done) {
      for (std::size_t block = 0; !done() && in.size() < noise.samples.size() - 16384;) {
        block = block % 1777 + 160;
        std::vector<float> sound(&noise.samples[in.size()], &noise.samples[in.size() + 2 * block]);
        in.insert(in.end(), sound.begin(), sound.end());
        engine.Process(sound.data(), sound.data(), block);
        heard.insert(heard.end(), sound.begin(), sound.end());
        std::vector<float> both(4 * block);
        ASSERT_EQ(tap.frames.Pop(both.data(), 2 * block), block);
        EXPECT_EQ(both[2], sound[0]);
        usleep(20'000);  // else the worker gets no time on a busy machine
        engine.Poll();
      }
    };
    const auto plays = [&](const std::string& sound, double trim_db) {
      return [&, sound, trim_db] {
        const LiveState state = engine.State();
        return state.plays == sound && !state.changing && std::abs(state.trim_db - trim_db) < 1e-6;
      };
    };
    const auto play_for = [&](double seconds) {
      const auto end = in.size() + static_cast<std::size_t>(seconds * 96000);
      play_until([&] { return in.size() >= end; });
    };
    engine.SetTrim(-6);  // nothing is to change: at once
    play_for(1);
    for (const auto& [setting, sound, trim] :
         {std::tuple{"mode=music", "music, wired", 3.0}, {"mode=off", "off", -12.0}}) {
      engine.Set(ParseSetting(setting));
      engine.SetTrim(trim);
      play_until(plays(sound, trim));
      play_for(0.5);
    }
    const float gain = std::pow(10.0f, -12.0f / 20);  // and off is the input
    EXPECT_NEAR(heard.back(), gain * in[in.size() - 1 - 2 * 1167], 1e-7);
    engine.Set(ParseSetting("mode=music"));
    engine.SetTuning(other);
    play_until(plays("music, wired", -12));
    // What was heard is kept, whatever becomes of it; what cannot be loaded is not heard, nor its
    // trim.
    std::filesystem::remove(other + "/upl.music.bin");
    engine.SetTuning(other);
    engine.SetTrim(0);
    play_until([&] { return !engine.State().trouble.empty(); });
    engine.SetTrim(0);  // it came too late to know that there was something to wait for
    play_for(0.2);
    EXPECT_EQ(engine.State().trouble,
              "no change to music, wired: not all of its files could be loaded");
    EXPECT_NEAR(engine.State().trim_db, -12, 1e-6);
    engine.SetTuning(KELDA_DEFAULT_TUNING);
    play_until(plays("music, wired", -12));
    play_for(0.5);
    EXPECT_EQ(full.lost + full.frames.ready(), in.size() / 2);
    EXPECT_THROW(engine.SetTuning(folder / "nothing"), Failure);
    EXPECT_THROW(engine.SetTrim(13), Failure);
    EXPECT_EQ(unsetenv("KELDA_DATA_DIR"), 0);
  }
  std::filesystem::remove_all(other);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(log_file + ".tunings"), {}), 3);
  // Each trim but the first came with its crossfade: frame for frame.
  const LoggedRun run = ReadTurnLog(log_file);
  ASSERT_EQ(run.trims.size(), 3u);
  EXPECT_EQ(run.trims[0].frame, 0u);
  for (const std::size_t trim : {1, 2}) {
    EXPECT_TRUE(std::any_of(run.turns.begin(), run.turns.end(), [&](const changeover::Turn& turn) {
      return turn.outcome == changeover::Turn::End::Heard &&
             kPeriodFrames * turn.end + kPeriodFrames - 1 == run.trims[trim].frame;
    }));
  }
  WriteAudio(folder / "in.wav", {in});
  ExpectReplay(log_file, folder / "in.wav", heard);
  ExpectRefused(kUsage, "--tuning: the tuning changes in ",
                {"render", "--host", "--replay", log_file, "--tuning", KELDA_DEFAULT_TUNING,
                 folder / "in.wav", folder / "x.wav"});

  // A turn that begins after its crossfade.
  std::string spoiled = folder.Read("log");
  const std::size_t heard_turn = spoiled.rfind('\n', spoiled.find("\"turn\":\"heard\""));
  const std::size_t begun = spoiled.find("\"begun\":", heard_turn) + std::strlen("\"begun\":");
  spoiled.replace(begun, spoiled.find_first_of(",}", begun) - begun,
                  std::to_string(100'000 * kPeriodFrames));
  folder.Write("log", spoiled);
  ExpectRefused(kInput, "cannot be repeated",
                {"render", "--host", "--replay", log_file, folder / "in.wav", folder / "none.wav"});
}

TEST_F(LiveTest, WithoutAServerAMessageSaysHowToStartIt) {
  ExpectRefused(kOutput, "no PipeWire server answers", {"live"});
  ExpectRefused(kOutput, "systemctl --user start pipewire", {"live", "--default"});
}

TEST_F(LiveTest, AReplayMakesTheSameAudioOfTheSameInputThroughEveryChange) {
  StartServer();
  WriteAudio(folder_ / "noise.wav", Noise(48000 * 40));
  RunningProgram live({"live", "--log", folder_ / "log", "--keep", folder_ / "kept", "--b",
                       "mode=cinema", "--b", "device=bluetooth"},
                      {.terminal = true});
  ASSERT_TRUE(
      live.WaitUntil([](const std::string& screen) { return Contains(screen, "to first"); }));
  Output("pw-play --target kelda_upmix " + folder_ / "noise.wav" + " >/dev/null 2>&1 &");
  const auto logged = [&](int turns) {
    return live.WaitUntil([&](const std::string&) {
      const std::string log = folder_.Read("log");
      int heard = 0;
      for (std::size_t at = 0; (at = log.find("\"turn\":\"heard\"", at)) != std::string::npos;
           ++at) {
        ++heard;
      }
      return heard >= turns;
    });
  };
  int turns = 0;
  const char* const keys = "cobbmobm";
  for (const auto& [rate_hz, quantum] : {std::pair{48000, 64},
                                         {44100, 256},
                                         {96000, 1024},
                                         {48000, 2048},
                                         {44100, 64},
                                         {96000, 8192},
                                         {44100, 4096},
                                         {48000, 256}}) {
    SetGraph(rate_hz, quantum);
    live.Type(std::string(1, keys[turns]));
    EXPECT_TRUE(logged(++turns)) << rate_hz << " " << quantum << folder_.Read("log");
  }
  // The output goes, and comes back.
  Output("pw-cli destroy first");
  live.Type("m");
  EXPECT_TRUE(live.WaitUntil([](const std::string& s) { return Contains(s, "no output"); }));
  MakeSink("first");
  live.Type("o");
  EXPECT_TRUE(logged(turns + 1)) << folder_.Read("log");
  Output("pw-cli send-command kelda_upmix Suspend '{}'");
  live.Type("m");
  EXPECT_TRUE(logged(turns + 2)) << folder_.Read("log");
  live.Type("q");
  const ProgramResult result = live.Wait();
  EXPECT_EQ(result.exit_code, 0) << result.err;

  ExpectReplay(folder_ / "log", folder_ / "kept/in.wav",
               ReadAudio(folder_ / "kept/out.wav").samples);
}

TEST_F(LiveTest, ATonePlaysThroughTheSinkAtItsLevel) {
  StartServer();
  Audio tone = Tones(20);
  WriteAudio(folder_ / "tone.wav", tone);
  RunningProgram live({"live", "--mode", "off"}, {.terminal = true});
  ASSERT_TRUE(live.WaitUntil([](const std::string& s) { return Contains(s, "to first"); }));
  Output("pw-play --target kelda_upmix " + folder_ / "tone.wav" + " >/dev/null 2>&1 &");
  EXPECT_TRUE(live.WaitUntil([](const std::string& s) { return Contains(s, "A off  -1"); }));
  Output("timeout -s INT 3 pw-record --target first -P '{ stream.capture.sink=true }' " +
         folder_ / "heard.wav");
  live.Type("q");
  EXPECT_EQ(live.Wait().exit_code, 0);
  const std::vector<float> heard = ReadAudio(folder_ / "heard.wav").samples;
  ASSERT_FALSE(heard.empty());
  EXPECT_NEAR(*std::max_element(heard.begin(), heard.end()),
              *std::max_element(tone.samples.begin(), tone.samples.end()), 1e-4);
}

TEST_F(LiveTest, TheOldDefaultIsBackHoweverTheProgramEnds) {
  StartServer();
  MakeSink("second");
  Output("pw-metadata 0 default.configured.audio.sink '{ \"name\": \"second\" }' Spa:String:JSON");
  ASSERT_TRUE(IsDefault("second"));
  for (const int signal : {SIGTERM, SIGKILL}) {
    RunningProgram live({"live", "--default"}, {.terminal = true});
    EXPECT_TRUE(IsDefault("kelda_upmix"));
    EXPECT_TRUE(live.WaitUntil([](const std::string& s) { return Contains(s, "to second"); }));
    live.Signal(signal);
    EXPECT_EQ(live.Wait().exit_code, 128 + signal);
    EXPECT_TRUE(IsDefault("second")) << signal;
    EXPECT_EQ(Default("default.configured"), "second\n");
  }
  // A second one leaves the first one's default alone.
  RunningProgram live({"live", "--default"}, {.terminal = true});
  EXPECT_TRUE(IsDefault("kelda_upmix"));
  RunningProgram another({"live", "--default", "--output", "first"}, {.terminal = true});
  EXPECT_TRUE(another.WaitUntil([](const std::string& s) { return Contains(s, "to first"); }));
  another.Signal(SIGTERM);
  another.Wait();
  EXPECT_EQ(Default("default.configured"), "kelda_upmix\n");
  // What was chosen meanwhile stays; and without a choice there is none afterwards.
  Output("pw-metadata 0 default.configured.audio.sink '{ \"name\": \"first\" }' Spa:String:JSON");
  live.Signal(SIGINT);
  live.Wait();
  EXPECT_TRUE(IsDefault("first"));
  ExpectRefused(kUsage, "there is no output nowhere; there are:", {"live", "--output", "nowhere"});
}

TEST_F(LiveTest, FilesArePlayedByTheKeysAndTheTerminalIsAsItWas) {
  StartServer();
  WriteAudio(folder_ / "long.wav", Tones(60));
  WriteAudio(folder_ / "short.wav", Noise(24000));
  folder_.Write("text.wav", std::string("no sound"));
  RunningProgram play({"play", "--keep", folder_ / "kept", folder_ / "long.wav",
                       folder_ / "text.wav", folder_ / "short.wav"},
                      {.terminal = true, .terminal_columns = 80});
  const auto shows = [&](const std::string& text) {
    const std::size_t from = play.screen().size();
    return play.WaitUntil(
        [&](const std::string& screen) { return screen.find(text, from) != std::string::npos; });
  };
  EXPECT_TRUE(shows("> 1/3 0:02/1:00  A music, wired"));
  play.Type(" ");
  EXPECT_TRUE(shows("|| 1/3 0:0"));
  play.Type(" c");
  EXPECT_TRUE(shows("A cinema, wired  "));
  play.Type("b");
  EXPECT_TRUE(shows("B off"));
  play.Type("\x1b[C\x1b[C\x1b[C");
  EXPECT_TRUE(shows("> 1/3 0:2"));
  play.Type("\x1b[D");
  EXPECT_TRUE(shows("> 1/3 0:1"));
  SetGraph(44100, 256);
  play.Type("b");
  EXPECT_TRUE(shows("A cinema, wired  "));
  play.Type("m");
  EXPECT_TRUE(shows("A music, wired  "));
  play.Type("\x1b[B");  // what is no sound is left out
  EXPECT_TRUE(shows("> 3/3 0:00/0:00"));
  const ProgramResult result = play.Wait();
  EXPECT_EQ(result.exit_code, kIncomplete) << result.err;
  EXPECT_TRUE(Contains(result.err, "text.wav: "));
  // No line is wider than the terminal, and the last is cleared.
  for (std::size_t at = 0; (at = result.err.find("\r\x1b[K", at)) != std::string::npos;) {
    at += 4;
    const std::string line = result.err.substr(at, result.err.find_first_of("\r\n", at) - at);
    EXPECT_TRUE(line.size() < 80 || line.starts_with("kelda: ")) << line;
  }
  EXPECT_TRUE(result.takes_lines);
  // Pauses, leaps and changes while the tones played: none clicks.
  std::vector<float> heard = ReadAudio(folder_ / "kept/out.wav").samples;
  ASSERT_GT(heard.size(), 2 * 48000 * 4u);
  heard.resize(heard.size() - 2 * 48000 * 3 / 2);  // the noise
  EXPECT_EQ(Steps(heard), std::vector<int64_t>{});
  // What cannot be read counts once, however often it is met.
  RunningProgram again({"play", folder_ / "text.wav", folder_ / "short.wav"}, {.terminal = true});
  EXPECT_TRUE(again.WaitUntil([](const std::string& screen) { return Contains(screen, "> 2/2"); }));
  again.Type("\x1b[A\x1b[A");
  EXPECT_EQ(again.Wait().exit_code, kIncomplete);
}

}  // namespace
}  // namespace kelda::tools
