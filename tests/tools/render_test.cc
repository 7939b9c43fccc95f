// `kelda render` with the effect library as built: what comes out, and when.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <numbers>
#include <optional>
#include <random>
#include <tuple>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/audio/audio_sink.h"

namespace kelda::tools {
namespace {

class Render : public testing::Test {
 protected:
  // Runs `kelda render input output ...`, which must succeed.
  ProgramResult Run(const std::string& input, const std::string& output,
                    std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"render", "-y", folder_ / input, folder_ / output});
    return Succeed(arguments);
  }

  Audio Rendered(const Audio& input, const std::vector<std::string>& arguments) {
    WriteAudio(folder_ / "in.wav", input);
    Run("in.wav", "out.wav", arguments);
    return ReadAudio(folder_ / "out.wav");
  }

  TemporaryFolder folder_;
};

TEST_F(Render, PassesTheInputThroughBitForBitInBlocksOfAnySize) {
  const Audio input = Noise(30011);
  const std::string seed = std::to_string(std::random_device()());
  for (const char* block : {"1", "480", "1023", "1024", "1025", "3000", "3072", "65536",
                            "random:1-100", "random:900-1200", "random:1-20000"}) {
    const Audio output = Rendered(input, {"--mode", "off", "--block", block, "--seed", seed});
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_FLOAT, output.format);
    EXPECT_TRUE(input.samples == output.samples) << block << " --seed " << seed;
  }
}

TEST_F(Render, PrintsTheSeedItDrew) {
  WriteAudio(folder_ / "in.wav", Noise(5000));
  const ProgramResult drawn =
      Run("in.wav", "a.wav", {"--mode", "off", "--block", "random", "--raw-timing"});
  ASSERT_TRUE(Holds(drawn.err, "--seed "));
  const std::string seed = Words(drawn.err.substr(drawn.err.find("--seed "))).at(1);
  const ProgramResult given =
      Run("in.wav", "b.wav",
          Words("--mode off --block random --raw-timing --log-level silent -q --seed " + seed));
  EXPECT_EQ("", given.err);
  EXPECT_EQ(folder_.Read("a.wav"), folder_.Read("b.wav"));
  EXPECT_EQ(std::string::npos, folder_.Read("a.wav").find("PEAK"));  // it holds the time of day
}

// The processors' latency is 96 frames of upmix and 48 of level control; the tool
// measures it, here it is known.
// With --raw-timing it stays, and that of the buffering: two periods of 1024 are ready with the
// fifth block of 480, so four were silent.
TEST_F(Render, TakesTheLatencyOfTheProcessorsOff) {
  const Audio input = Noise(20000);
  constexpr std::size_t kBufferFrames = std::size_t{4} * 480;
  const std::pair<std::string, std::size_t> kCases[] = {
      {"--mode off", 0},
      {"--mode music", 96 + 48},
      {"--mode cinema --device bluetooth", 96 + 48},
      {"--mode auto --app not.listed --app-flag 1", 96 + 48},
      {"--mode music --device speaker", 0},
      {"--mode off --at 0 mode=music --at 0 reset", 96 + 48},
      {"--mode off --at 0.1 mode=music", 0}};
  for (const auto& [options, latency_frames] : kCases) {
    const Audio aligned = Rendered(input, Words(options + " --block 480"));
    const Audio raw = Rendered(input, Words(options + " --block 480 --raw-timing"));
    EXPECT_EQ(0, raw.frames() % 480);
    EXPECT_TRUE(std::all_of(raw.samples.begin(), raw.samples.begin() + 2 * kBufferFrames,
                            [](float sample) { return sample == 0.0f; }));
    ASSERT_EQ(input.frames(), aligned.frames());
    ASSERT_GE(raw.samples.size() / 2, 20000 + kBufferFrames + latency_frames);
    EXPECT_TRUE(std::equal(
        aligned.samples.begin(), aligned.samples.end(),
        raw.samples.begin() + static_cast<std::ptrdiff_t>(2 * (kBufferFrames + latency_frames))))
        << options;
  }
}

// The instances that measure must not touch the capture of the one that renders.
TEST_F(Render, CapturesWhatTheHostGets) {
  WriteAudio(folder_ / "in.wav", Noise(9600));
  std::filesystem::create_directory(folder_ / "tuning");
  Run("in.wav", "out.wav",
      Words("--mode off --raw-timing --log-level silent --property ro.debuggable=1 "
            "--property vendor.kelda.pcmdump=10 --tuning " +
            (folder_ / "tuning")));
  std::string captured;
  for (const auto& entry : std::filesystem::directory_iterator(folder_ / "tuning")) {
    captured += folder_.Read("tuning/" + entry.path().filename().string());
  }
  const Audio output = ReadAudio(folder_ / "out.wav");
  EXPECT_TRUE(captured == std::string(reinterpret_cast<const char*>(output.samples.data()),
                                      output.samples.size() * sizeof(float)));
}

// A reset or a disable drops what waits in the effect. The gap must be where the
// audio was, and everything after it in its place.
TEST_F(Render, KeepsLaterAudioInPlaceAfterAReset) {
  const Audio input = Noise(48000);
  for (const char* change : {"reset", "disable"}) {
    const Audio output = Rendered(input, {"--mode", "off", "--at", "0.5", change});
    ASSERT_EQ(input.frames(), output.frames());
    std::size_t zeros = 0;
    for (std::size_t i = 0; i < input.samples.size(); ++i) {
      const bool dropped = output.samples[i] == 0.0f && i < std::size_t{2} * 24000;
      zeros += dropped ? 1 : 0;
      ASSERT_TRUE(dropped || output.samples[i] == input.samples[i]) << change << i;
    }
    EXPECT_GT(zeros, 2u * 1024) << change;
    EXPECT_LT(zeros, 2u * 4096) << change;
  }
}

// The largest energy of the second difference in any 64 frames of [first, first + frames).
double Edge(const Audio& audio, std::size_t first, std::size_t frames) {
  const auto squared = [&](std::size_t frame) {
    const float* const at = &audio.samples[2 * frame];
    return std::pow(double{at[0]} - 2 * double{at[2]} + double{at[4]}, 2);
  };
  double energy = 0, largest = 0;
  for (std::size_t frame = first; frame < first + frames; ++frame) {
    energy += squared(frame) - (frame >= first + 64 ? squared(frame - 64) : 0);
    largest = std::max(largest, energy);
  }
  return largest;
}

TEST_F(Render, ChangesThroughTheHostAreHeardWithoutAClick) {
  constexpr std::size_t kSecond = 48000;
  Audio tones;
  for (std::size_t frame = 0; frame < 5 * kSecond / 2; ++frame) {
    const double time = static_cast<double>(frame) / kSecond;
    for (const double hz : {220.0, 331.0}) {
      tones.samples.push_back(static_cast<float>(0.2 * std::sin(2 * std::numbers::pi * hz * time)));
    }
  }
  const auto rendered = [&](const std::string& options) {
    return Rendered(tones, Words(options + " --mode off --at 0.8 mode=music --at 1.28 mode=cinema "
                                           "--at 1.76 mode=off"));
  };
  // Whether a change, which begins within a period, has no more of an edge than what is around it.
  const auto smooth = [](const Audio& audio, double at_s) {
    constexpr std::size_t kAround = kSecond / 5, kEarly = 1100;
    const auto at = static_cast<std::size_t>(at_s * kSecond) - kEarly;
    const double around =
        std::max(Edge(audio, at - kAround, kAround), Edge(audio, at + kAround, kAround));
    return Edge(audio, at, kAround) < 2 * around;
  };
  const Audio hosted = rendered("--host --block 960");
  for (const double at_s : {0.8, 1.28, 1.76}) {
    EXPECT_TRUE(smooth(hosted, at_s)) << at_s;
  }
  EXPECT_FALSE(smooth(rendered("--block 960"), 1.76)) << "the record's own way is abrupt";
  // As long as the input, in time with it, and the same for any blocks that start at the changes.
  ASSERT_EQ(hosted.frames(), tones.frames());
  const auto plain = [&](std::size_t first, std::size_t end) {
    return std::equal(&tones.samples[2 * first], &tones.samples[2 * end],
                      &hosted.samples[2 * first]);
  };
  EXPECT_TRUE(plain(0, kSecond * 4 / 5 - 1024));
  EXPECT_FALSE(plain(kSecond, kSecond + 10));
  EXPECT_TRUE(plain(kSecond * 19 / 10, kSecond * 5 / 2));
  EXPECT_TRUE(rendered("--host --block 128").samples == hosted.samples);
  const Audio raw = rendered("--host --block 480 --raw-timing");
  EXPECT_TRUE(std::equal(hosted.samples.begin(), hosted.samples.end(),
                         raw.samples.begin() + std::ptrdiff_t{2} * (1023 + 144)));

  // What cannot be loaded is not heard, and is said.
  std::filesystem::copy(KELDA_DEFAULT_TUNING, folder_ / "tuning");
  std::filesystem::remove(folder_ / "tuning/upmix.music.hps.bin");
  const ProgramResult kept =
      Run("in.wav", "out.wav",
          Words("--host --mode off --at 1 mode=music --tuning " + (folder_ / "tuning")));
  EXPECT_TRUE(Holds(kept.err, "The sound does not change to music, wired: not all of its files"));
  EXPECT_TRUE(ReadAudio(folder_ / "out.wav").samples == tones.samples);
  const std::vector<std::string> render{"render", "-y", folder_ / "in.wav", folder_ / "out.wav",
                                        "--host"};
  const auto refused = [&](int code, const std::string& message, const std::string& more) {
    std::vector<std::string> arguments = render;
    for (const std::string& word : Words(more)) {
      arguments.push_back(word);
    }
    ExpectRefused(code, message, arguments);
  };
  refused(6, "the effect refused to be created", "--property vendor.kelda.effect=0");
  refused(2, "mode=loud", "--at 1 mode=loud");
  refused(2, "not a block size", "--block 0");
}

TEST_F(Render, WritesFlacOf24Bit) {
  Audio input = Noise(3000);
  WriteAudio(folder_ / "in.wav", input);
  Run("in.wav", "out.flac", {"--mode", "off"});
  const Audio output = ReadAudio(folder_ / "out.flac");
  EXPECT_EQ(SF_FORMAT_FLAC | SF_FORMAT_PCM_24, output.format);
  EXPECT_TRUE(input.samples == output.samples);

  input.samples[100] = 1.5f;
  input.samples[101] = -1.5f;
  WriteAudio(folder_ / "in.wav", input);
  const ProgramResult result = Run("in.wav", "out.flac", {"--mode", "off"});
  EXPECT_TRUE(Holds(result.err, "2 samples beyond full scale were clipped"));
  const Audio clipped = ReadAudio(folder_ / "out.flac");
  EXPECT_NEAR(1.0f, clipped.samples[100], 1e-6);
  EXPECT_NEAR(-1.0f, clipped.samples[101], 1e-6);
  EXPECT_EQ(1.5f, Rendered(input, {"--mode", "off"}).samples[100]);
}

TEST_F(Render, WritesRf64BeyondTheLimitOfWav) {
  const Audio noise = Noise(1000);
  using Frames = std::optional<int64_t>;
  const std::pair<Frames, int> kCases[] = {{Frames(500'000'000), SF_FORMAT_WAV},
                                           {Frames(600'000'000), SF_FORMAT_RF64},
                                           {Frames(), SF_FORMAT_WAVEX}};
  for (const auto& [expected_frames, type] : kCases) {
    AudioSink sink(folder_ / "out.wav", expected_frames);
    sink.Write(noise.samples.data(), 1000);
    sink.Finish();
    const Audio output = ReadAudio(folder_ / "out.wav");
    EXPECT_EQ(type | SF_FORMAT_FLOAT, output.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK));
    EXPECT_TRUE(noise.samples == output.samples);
  }
}

TEST_F(Render, TakesAnEmptyFile) {
  for (const char* timing : {"--seed=1", "--raw-timing"}) {
    EXPECT_EQ(0, Rendered(Noise(0), {"--mode", "music", timing}).frames());
  }
}

TEST_F(Render, ReplacesOnlyWhatItMay) {
  WriteAudio(folder_ / "song.wav", Noise(3000));
  const std::string song = folder_.Read("song.wav");
  std::filesystem::create_symlink("song.wav", folder_ / "link.wav");
  std::filesystem::create_hard_link(folder_ / "song.wav", folder_ / "hard.wav");
  for (const char* name : {"song.wav", "link.wav", "hard.wav"}) {
    ExpectRefused(2, "it is the input itself",
                  {"render", "-y", folder_ / "song.wav", folder_ / name});
    ExpectRefused(2, "it is the input itself",
                  {"capture", folder_ / "song.wav", "-yo", folder_ / name});
  }
  folder_.Write("out.wav", "precious");
  const std::vector<std::string> render{"render", folder_ / "song.wav", folder_ / "out.wav"};
  ExpectRefused(4, "it exists; -y replaces it", render);
  ExpectRefused(4, "it exists; -y", {"capture", folder_ / "song.wav", "-o", folder_ / "out.wav"});
  ExpectRefused(4, "it exists and stays", render, {.terminal = true, .typed = "\n"});
  EXPECT_EQ("precious", folder_.Read("out.wav"));
  EXPECT_TRUE(song == folder_.Read("song.wav"));
  const ProgramResult asked = RunKelda(render, {.terminal = true, .typed = "y\n"});
  EXPECT_TRUE(Holds(asked.err, "out.wav exists. Replace it? [y/N] "));
  EXPECT_EQ(3000, ReadAudio(folder_ / "out.wav").frames());
  std::filesystem::create_symlink("out.wav", folder_ / "other.wav");
  std::filesystem::create_symlink("new.wav", folder_ / "dangling.wav");
  for (const char* link : {"other.wav", "dangling.wav"}) {
    Run("song.wav", link, {});
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ / link));
  }
  EXPECT_EQ(3000, ReadAudio(folder_ / "new.wav").frames());
}

// A sine of 997 Hz at -20 dBFS in both channels has -20 LUFS (ITU-R BS.1770-4, annex 1).
TEST_F(Render, SumsUpInALine) {
  Audio tone;
  for (int frame = 0; frame < 48000; ++frame) {
    const double value = 0.1 * std::sin(2 * std::numbers::pi * 997 * frame / 48000);
    tone.samples.insert(tone.samples.end(), 2, static_cast<float>(value));
  }
  WriteAudio(folder_ / "in.wav", tone);
  const auto last_line = [&](const std::string& options) {
    const std::string text = Run("in.wav", "out.wav", Words("--log-level silent " + options)).err;
    return text.substr(text.rfind('\n', text.size() - 2) + 1);
  };
  EXPECT_TRUE(Matches(last_line("--mode off --at 0.5 mode=music"),
                      "kelda: " + (folder_ / "out.wav") +
                          ": 0:01.000; loudness -20.0 LUFS in, -[0-9.]+ out; true peak -20.0 dBTP "
                          "in, -[0-9.]+ out; [0-9.]+x real time; ran: pass-through; from 0:00.500 "
                          "music upmix, level control\n"));
  EXPECT_TRUE(Holds(last_line("--mode off"),
                    "-20.0 LUFS in, -20.0 out; true peak -20.0 dBTP in, -20.0 out;"));
}

TEST_F(Render, WarnsOfWhatWasNotHeardAsAskedFor) {
  Audio noise = Noise(9600);
  WriteAudio(folder_ / "in.wav", noise);
  noise.samples[100] = std::numeric_limits<float>::quiet_NaN();
  noise.samples[200] = std::numeric_limits<float>::infinity();
  WriteAudio(folder_ / "nan.wav", noise);
  folder_.Write("s", "0.1 mode=off\n0.2 mode=off\n");
  std::filesystem::copy(KELDA_DEFAULT_TUNING, folder_ / "tuning");
  std::filesystem::remove(folder_ / "tuning/upmix.music.hps.bin");
  const std::tuple<const char*, std::string, std::string> kCases[] = {
      {"in.wav", "", ""},
      {"in.wav", "--device speaker --mode off", ""},
      {"in.wav", "--device speaker", "the upmix did not run: the device is no headphone"},
      {"in.wav", "--at 0.1 device=speaker",
       "from 0:00.100 the upmix did not run: the device is no headphone"},
      {"in.wav", "--mode auto --app com.example", ""},
      {"in.wav", "--mode auto", "mode auto got no application (--app), so it upmixed music"},
      {"in.wav", "--tuning " + (folder_ / "tuning"),
       "not ready: music upmix; 'kelda doctor' says what is wrong with the tuning and what is "
       "heard\n"
       "kelda: warning: " +
           (folder_ / "out.wav") + ": the output is silent, and the input is not"},
      {"in.wav", "--mode cinema --tuning " + (folder_ / "tuning"), ""},
      {"in.wav", "--mode off --scenario " + (folder_ / "s"),
       (folder_ / "s:2") + ": not reached, the audio ended before"},
      {"nan.wav", "",
       (folder_ / "nan.wav") + ": 2 samples were NaN or infinite and were taken as 0"}};
  for (const auto& [file, options, warning] : kCases) {
    EXPECT_EQ(warning.empty() ? "" : "kelda: warning: " + warning + "\n",
              Run(file, "out.wav", Words("-q --log-level silent " + options)).err)
        << options;
  }
}

}  // namespace
}  // namespace kelda::tools
