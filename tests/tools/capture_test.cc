// `kelda capture` on captures whose faults are known to the frame.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>

#include "tests/tools/audio_files.h"
#include "tests/tools/program.h"
#include "tools/step_detector.h"

namespace kelda::tools {
namespace {

using nlohmann::json;

constexpr int64_t kFrames = 48000;

// A tone per channel, quiet noise on top.
std::vector<float> Tones(int channels) {
  std::mt19937 random(7);
  std::vector<float> samples;
  for (int64_t frame = 0; frame < kFrames; ++frame) {
    for (int channel = 0; channel < channels; ++channel) {
      const double hz = 200.0 + 130.0 * channel;
      const double noise = static_cast<double>(random()) / 4294967296.0 - 0.5;
      samples.push_back(static_cast<float>(
          0.3 * std::sin(2 * std::numbers::pi * hz * static_cast<double>(frame) / 48000 + channel) +
          0.001 * noise));
    }
  }
  return samples;
}

std::string Bytes(const std::vector<float>& samples) {
  std::string bytes(samples.size() * sizeof(float), '\0');
  std::memcpy(bytes.data(), samples.data(), bytes.size());
  return bytes;
}

// Stereo samples in blocks of 1024 frames, a channel after the other.
std::vector<float> Planar(const std::vector<float>& stereo) {
  std::vector<float> planar;
  for (size_t block = 0; block + 2048 <= stereo.size(); block += 2048) {
    for (size_t channel = 0; channel < 2; ++channel) {
      for (size_t frame = 0; frame < 1024; ++frame) {
        planar.push_back(stereo[block + 2 * frame + channel]);
      }
    }
  }
  return planar;
}

class Capture : public testing::Test {
 protected:
  json Examine(const std::string& bytes, const std::string& options = "",
               const std::string& name = "capture.pcm") {
    folder_.Write(name, bytes);
    std::vector<std::string> arguments = Words("capture --json " + options);
    arguments.push_back(folder_ / name);
    const ProgramResult result = RunKelda(arguments);
    EXPECT_EQ(0, result.exit_code) << result.err;
    return json::parse(result.out, nullptr, false);
  }

  std::pair<int, std::string> Layout(const std::vector<float>& samples,
                                     const std::string& name = "capture.pcm") {
    const json layout = Examine(Bytes(samples), "", name)["layout"];
    return {layout["channels"].get<int>(), layout["order"].get<std::string>()};
  }

  const TemporaryFolder folder_;
};

using Guess = std::pair<int, std::string>;

TEST_F(Capture, GuessesTheLayout) {
  for (const int channels : {1, 2, 3, 7}) {
    EXPECT_EQ(Guess(channels, "interleaved"), Layout(Tones(channels)));
  }
  const std::vector<float> stereo = Tones(2);
  EXPECT_EQ(Guess(2, "planar-1024"), Layout(Planar(stereo)));
  EXPECT_EQ(Guess(2, "planar-1024"), Layout(stereo, "rawfile_night_hpeq.raw"));
  std::vector<float> twice;
  for (const float sample : Tones(1)) {
    twice.insert(twice.end(), {sample, sample});
  }
  EXPECT_EQ(Guess(2, "interleaved"), Layout(twice)) << "both channels alike";
  EXPECT_EQ(Guess(2, "interleaved"), Layout(Noise(kFrames).samples)) << "nothing to go by";
  EXPECT_EQ(Guess(2, "interleaved"), Layout(std::vector<float>(4096)));
}

TEST_F(Capture, WritesTheSamplesAsTheyAre) {
  const std::vector<float> stereo = Noise(3 * 1024).samples;
  const std::string out = folder_ / "out.wav";
  Examine(Bytes(stereo), "-o " + out);
  EXPECT_EQ(stereo, ReadAudio(out).samples);
  Examine(Bytes(Planar(stereo)), "--layout planar-1024 -o " + out);
  EXPECT_EQ(stereo, ReadAudio(out).samples);
  Examine(Bytes(Noise(1000, 5).samples), "--channels 5 -o " + out);
  EXPECT_EQ(5, ReadAudio(out).channels);
  EXPECT_EQ(Noise(1000, 5).samples, ReadAudio(out).samples);
}

TEST_F(Capture, CutOffInTheMiddleOfAFrame) {
  const std::vector<float> stereo = Tones(2);
  const std::string bytes = Bytes(stereo);
  const json interleaved = Examine(bytes.substr(0, 8 * 1000 + 5), "--channels 2");
  EXPECT_EQ(1000, interleaved["frames"]);
  EXPECT_EQ(5, interleaved["trailing_bytes"]);
  // The second block: all of the left plane, 10 samples and a half of the right.
  const std::string planar = Bytes(Planar(stereo));
  const json cut = Examine(planar.substr(0, 8192 + 4096 + 42),
                           "--layout planar-1024 --channels 2 -o " + (folder_ / "cut.wav"));
  EXPECT_EQ(1034, cut["frames"]);
  EXPECT_EQ(4096 - 40 + 2, cut["trailing_bytes"]);
  EXPECT_EQ(std::vector<float>(stereo.begin(), stereo.begin() + 2 * 1034),
            ReadAudio(folder_ / "cut.wav").samples);
}

TEST_F(Capture, MeasuresLevels) {
  std::vector<float> samples(2 * kFrames);
  for (size_t frame = 0; frame < kFrames; ++frame) {
    samples[2 * frame] = frame % 2 == 0 ? 0.5F : -0.25F;
  }
  samples[2 * 12345] = -0.75F;
  const json channels = Examine(Bytes(samples), "--channels 2")["channels"];
  EXPECT_NEAR(20 * std::log10(0.75), channels[0]["peak_dbfs"], 1e-6);
  EXPECT_EQ(12345, channels[0]["peak_frame"]);
  EXPECT_NEAR(10 * std::log10((0.25 + 0.0625) / 2), channels[0]["rms_dbfs"], 1e-3);
  EXPECT_NEAR(0.125, channels[0]["mean"], 1e-4);
  EXPECT_TRUE(channels[1]["peak_dbfs"].is_null());
}

TEST_F(Capture, CountsNansAndInfinities) {
  std::vector<float> samples = Tones(2);
  samples[2 * 100 + 1] = std::numeric_limits<float>::quiet_NaN();
  samples[2 * 200] = std::numeric_limits<float>::infinity();
  samples[2 * 201] = -std::numeric_limits<float>::infinity();
  const json found = Examine(Bytes(samples), "-o " + (folder_ / "out.wav"));
  EXPECT_EQ(1, found["channels"][1]["nan"]);
  EXPECT_EQ(2, found["channels"][0]["inf"]);
  EXPECT_EQ(100, found["not_finite"]["events"][0]["frame"]);
  EXPECT_EQ(0.0F, ReadAudio(folder_ / "out.wav").samples[201]);
}

TEST_F(Capture, FindsSilence) {
  std::vector<float> samples = Tones(2);
  std::fill(samples.begin() + 2 * 960, samples.begin() + 2 * 1920, 0.0F);
  std::fill(samples.end() - 2 * 100, samples.end(), 1e-5F);  // to the end, but not zero
  samples[2 * 30000] = samples[2 * 30000 + 1] = 0;           // a crossing of zero is none
  const json silence = Examine(Bytes(samples), "--channels 2")["silence"];
  ASSERT_EQ(2, silence["count"]);
  EXPECT_EQ(960, silence["events"][0]["frame"]);
  EXPECT_EQ(960, silence["events"][0]["frames"]);
  EXPECT_TRUE(silence["events"][0]["peak_dbfs"].is_null());
  EXPECT_EQ(kFrames - 100, silence["events"][1]["frame"]);
  EXPECT_NEAR(-100, silence["events"][1]["peak_dbfs"], 1e-3);
}

TEST_F(Capture, FindsClipping) {
  std::vector<float> samples = Tones(2);
  for (size_t frame = 5000; frame < 5010; ++frame) {
    samples[2 * frame] = 1.25F;
  }
  for (size_t frame = 20000; frame < 20004; ++frame) {
    samples[2 * frame + 1] = -1.0F;
  }
  samples[2 * 40000] = 1.0F;  // full scale, once, is none
  const json found = Examine(Bytes(samples), "--channels 2");
  EXPECT_EQ(10, found["channels"][0]["beyond_full_scale"]);
  const json& clipping = found["clipping"];
  ASSERT_EQ(2, clipping["count"]);
  EXPECT_EQ(5000, clipping["events"][0]["frame"]);
  EXPECT_EQ(10, clipping["events"][0]["frames"]);
  EXPECT_NEAR(20 * std::log10(1.25), clipping["events"][0]["peak_dbfs"], 1e-6);
  EXPECT_EQ(20000, clipping["events"][1]["frame"]);
  EXPECT_EQ(4, clipping["events"][1]["frames"]);
  EXPECT_EQ(1, clipping["events"][1]["channel"]);
}

TEST_F(Capture, FindsDiscontinuitiesAndNothingElse) {
  std::vector<float> samples = Tones(2);
  for (size_t frame = 10240; frame < kFrames; ++frame) {
    samples[2 * frame] += 0.2F;  // a step
  }
  samples[2 * 20001 + 1] -= 0.3F;  // a click
  // A drum: noise that begins at once and dies away.
  const std::vector<float> noise = Noise(4800).samples;
  for (size_t frame = 0; frame < 4800; ++frame) {
    samples[2 * (30000 + frame)] +=
        noise[2 * frame] * std::exp(-static_cast<float>(frame) / 1000.0F);
  }
  const json steps = Examine(Bytes(samples), "--channels 2")["discontinuities"];
  ASSERT_EQ(2, steps["count"]) << steps;
  EXPECT_EQ(10240, steps["events"][0]["frame"]);
  EXPECT_EQ(0, steps["events"][0]["channel"]);
  EXPECT_NEAR(0.2, steps["events"][0]["step"], 0.02);
  EXPECT_EQ(20001, steps["events"][1]["frame"]);
  EXPECT_EQ(1, steps["events"][1]["channel"]);
  EXPECT_EQ(0, Examine(Bytes(Noise(kFrames).samples))["discontinuities"]["count"]);
}

// Any bytes are a capture: nothing may upset the program, and what it writes is finite.
TEST_F(Capture, SurvivesAnyBytes) {
  const uint32_t seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const size_t bytes : {4U, 7U, 8192U, 300001U}) {
    std::string hostile(bytes, '\0');
    for (char& byte : hostile) {
      byte = static_cast<char>(random());
    }
    const json found = Examine(hostile, "--channels 1 -o " + (folder_ / "out.wav"));
    EXPECT_EQ(bytes / 4, found["frames"]);
    EXPECT_EQ(bytes % 4, found["trailing_bytes"]);
    for (const float sample : ReadAudio(folder_ / "out.wav").samples) {
      ASSERT_TRUE(std::isfinite(sample));
    }
  }
}

TEST_F(Capture, RefusesWhatIsNone) {
  const auto expect = [&](int exit_code, const std::string& message,
                          const std::vector<std::string>& arguments) {
    const ProgramResult result = RunKelda(arguments);
    EXPECT_EQ(exit_code, result.exit_code) << result.err;
    EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
    EXPECT_EQ("", result.out);
  };
  folder_.Write("empty.pcm", "");
  folder_.Write("short.pcm", "1234567");
  folder_.Write("good.pcm", Bytes(Tones(2)));
  expect(3, "No such file", {"capture", folder_ / "none.pcm"});
  expect(3, "it is a directory", {"capture", folder_ / ""});
  expect(3, "no whole frame", {"capture", folder_ / "empty.pcm"});
  expect(3, "no whole frame", {"capture", folder_ / "short.pcm", "-o", folder_ / "out.wav"});
  expect(2, "--channels", {"capture", folder_ / "good.pcm", "--channels", "9"});
  expect(2, "unknown ending", {"capture", folder_ / "good.pcm", "-o", folder_ / "out.mp3"});
  ProgramSurroundings small;
  small.file_size_limit_bytes = 65536;
  EXPECT_EQ(
      4, RunKelda({"capture", folder_ / "good.pcm", "-o", folder_ / "out.wav"}, small).exit_code);
  EXPECT_FALSE(folder_.Names().contains("out.wav"));
  EXPECT_EQ(3U, folder_.Names().size());
}

TEST_F(Capture, ListsForAReader) {
  std::vector<float> samples = Tones(2);
  for (const size_t frame : {10000, 20000, 30000}) {
    samples[2 * frame] += 0.5F;
  }
  folder_.Write("capture.pcm", Bytes(samples) + "xyz");
  const ProgramResult result = RunKelda({"capture", folder_ / "capture.pcm", "--list", "2"});
  EXPECT_EQ(0, result.exit_code);
  for (const char* text :
       {"48000 frames, 0:01.0000 at 48 kHz; 2 channels, interleaved (guessed: ",
        "cut off: the last 3 bytes", "Discontinuities: 3\n  0:00.2083  frame 10000 ",
        "784 frames into a period", "  and 1 more\n", "Clipping: none"}) {
    EXPECT_NE(std::string::npos, result.out.find(text)) << text << "\n" << result.out;
  }
}

TEST(StepDetector, TellsStepsFromSound) {
  const auto steps = [](auto signal) {
    StepDetector detector;
    std::vector<int64_t> frames;
    for (int i = 0; i < 4800; ++i) {
      if (const auto step = detector.Add(signal(i))) {
        frames.push_back(step->frame);
      }
    }
    for (int i = 0; i < StepDetector::kFlushFrames; ++i) {
      if (const auto step = detector.Flush()) {
        frames.push_back(step->frame);
      }
    }
    return frames;
  };
  const auto tone = [](int i) { return 0.5 * std::sin(0.05 * i + 1); };
  EXPECT_EQ((std::vector<int64_t>{}), steps(tone));
  EXPECT_EQ((std::vector<int64_t>{2000, 4790}),
            steps([&](int i) { return i >= 2000 && i < 4790 ? 0 : tone(i); }));
  EXPECT_EQ((std::vector<int64_t>{}),
            steps([&](int i) { return i < 2000 ? 0 : std::sin(0.05 * (i - 2000)) * 0.5; }));
  EXPECT_EQ((std::vector<int64_t>{3000}),
            steps([&](int i) { return tone(i) + (i >= 3000 ? 0.05 : 0); }));
  // One absurd sample, and a step long after it.
  EXPECT_EQ((std::vector<int64_t>{300, 3000}),
            steps([&](int i) { return i == 300 ? 1e30 : tone(i) + (i >= 3000 ? 0.05 : 0); }));
}

}  // namespace
}  // namespace kelda::tools
