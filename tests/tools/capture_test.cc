// `kelda capture` on captures whose faults are known to the frame.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <random>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"

namespace kelda::tools {
namespace {

using nlohmann::json;

constexpr int64_t kFrames = 48000;

// A tone per channel, quiet noise on top.
std::vector<float> Tones(int channels) {
  std::mt19937 random(7);
  std::vector<float> samples;
  for (int i = 0; i < kFrames * channels; ++i) {
    const int frame = i / channels, channel = i % channels;
    const double hz = 200.0 + 130.0 * channel;
    const double noise = static_cast<double>(random()) / 4294967296.0 - 0.5;
    const double phase = 2 * std::numbers::pi * hz * frame / 48000 + channel;
    samples.push_back(static_cast<float>(0.3 * std::sin(phase) + 0.001 * noise));
  }
  return samples;
}

std::string Bytes(const std::vector<float>& samples) {
  return {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(float)};
}

// Stereo samples in blocks of 1024 frames, a channel after the other.
std::vector<float> Planar(const std::vector<float>& stereo) {
  std::vector<float> planar;
  for (std::size_t i = 0; i < stereo.size() / 2048 * 2048; ++i) {
    const std::size_t block = i / 2048, channel = i % 2048 / 1024, frame = i % 1024;
    planar.push_back(stereo[2048 * block + 2 * frame + channel]);
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
    return json::parse(Succeed(arguments).out, nullptr, false);
  }

  std::string Layout(const std::vector<float>& samples, const std::string& name = "capture.pcm") {
    const json layout = Examine(Bytes(samples), "", name)["layout"];
    return layout["channels"].dump() + " " + layout["order"].get<std::string>();
  }

  // The samples that `kelda capture -o` writes.
  std::vector<float> Written(const std::string& bytes, const std::string& options = "") {
    Examine(bytes, options + " -yo " + out_);
    return ReadAudio(out_).samples;
  }

  const TemporaryFolder folder_;
  const std::string out_ = folder_ / "out.wav";
};

// "FRAME+FRAMES in CHANNEL, ..." of a kind of finding.
std::string Events(const json& found) {
  std::string text;
  for (const json& event : found["events"]) {
    text += (text.empty() ? "" : ", ") + event["frame"].dump() + "+" + event["frames"].dump();
    if (event.contains("channel")) {
      text += " in " + event["channel"].dump();
    }
  }
  return text;
}

TEST_F(Capture, GuessesTheLayout) {
  for (const int channels : {1, 2, 3, 7}) {
    EXPECT_EQ(std::to_string(channels) + " interleaved", Layout(Tones(channels)));
  }
  const std::vector<float> stereo = Tones(2);
  EXPECT_EQ("2 planar-1024", Layout(Planar(stereo)));
  EXPECT_EQ("2 planar-1024", Layout(stereo, "rawfile_night_hpeq.raw"));
  std::vector<float> twice;
  for (const float sample : Tones(1)) {
    twice.insert(twice.end(), {sample, sample});
  }
  EXPECT_EQ("2 interleaved", Layout(twice)) << "both channels alike";
  EXPECT_EQ("2 interleaved", Layout(Noise(kFrames).samples)) << "nothing to go by";
  EXPECT_EQ("2 interleaved", Layout(std::vector<float>(4096)));
}

TEST_F(Capture, WritesTheSamplesAsTheyAre) {
  const std::vector<float> stereo = Noise(3 * 1024).samples;
  EXPECT_EQ(stereo, Written(Bytes(stereo)));
  EXPECT_EQ(stereo, Written(Bytes(Planar(stereo)), "--layout planar-1024"));
  EXPECT_EQ(Noise(1000, 5).samples, Written(Bytes(Noise(1000, 5).samples), "--channels 5"));
  EXPECT_EQ(5, ReadAudio(out_).channels);
}

TEST_F(Capture, CutOffInTheMiddleOfAFrame) {
  const std::vector<float> stereo = Tones(2);
  const json interleaved = Examine(Bytes(stereo).substr(0, 8 * 1000 + 5), "--channels 2");
  EXPECT_EQ(1000, interleaved["frames"]);
  EXPECT_EQ(5, interleaved["trailing_bytes"]);
  // The second block: all of the left plane, 10 samples and a half of the right.
  const std::string planar = Bytes(Planar(stereo)).substr(0, 8192 + 4096 + 42);
  EXPECT_EQ(4096 - 40 + 2, Examine(planar, "--layout planar-1024")["trailing_bytes"]);
  EXPECT_EQ(std::vector<float>(stereo.begin(), stereo.begin() + 2 * 1034),
            Written(planar, "--layout planar-1024 --channels 2"));
}

TEST_F(Capture, MeasuresLevels) {
  std::vector<float> samples(2 * kFrames);
  for (std::size_t frame = 0; frame < kFrames; ++frame) {
    samples[2 * frame] = frame % 2 == 0 ? 0.5f : -0.25f;
  }
  samples[2 * 12345] = -0.75f;
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
  const json found = Examine(Bytes(samples), "-o " + out_);
  EXPECT_EQ(1, found["channels"][1]["nan"]);
  EXPECT_EQ(2, found["channels"][0]["inf"]);
  EXPECT_EQ(100, found["not_finite"]["events"][0]["frame"]);
  EXPECT_EQ(0.0f, ReadAudio(out_).samples[201]);
}

TEST_F(Capture, FindsSilenceAndClipping) {
  std::vector<float> samples = Tones(2);
  std::fill_n(samples.begin() + 2 * 960, 2 * 960, 0.0f);
  std::fill(samples.end() - 2 * 100, samples.end(), 1e-5f);  // to the end, but not zero
  samples[2 * 30000] = samples[2 * 30000 + 1] = 0;           // a crossing of zero is none
  for (std::size_t frame = 5000; frame < 5010; ++frame) {
    samples[2 * frame] = 1.25f;
  }
  for (std::size_t frame = 20000; frame < 20004; ++frame) {
    samples[2 * frame + 1] = -1.0f;
  }
  samples[2 * 40000] = 1.0f;  // full scale, once, is none
  const json found = Examine(Bytes(samples), "--channels 2");
  EXPECT_EQ("960+960, 47900+100", Events(found["silence"]));
  EXPECT_TRUE(found["silence"]["events"][0]["peak_dbfs"].is_null());
  EXPECT_NEAR(-100, found["silence"]["events"][1]["peak_dbfs"], 1e-3);
  EXPECT_EQ("5000+10 in 0, 20000+4 in 1", Events(found["clipping"]));
  EXPECT_EQ(10, found["channels"][0]["beyond_full_scale"]);
  EXPECT_NEAR(20 * std::log10(1.25), found["clipping"]["events"][0]["peak_dbfs"], 1e-6);
}

TEST_F(Capture, FindsDiscontinuitiesAndNothingElse) {
  std::vector<float> samples = Tones(2);
  for (std::size_t frame = 10240; frame < kFrames; ++frame) {
    samples[2 * frame] += 0.2f;  // a step
  }
  samples[2 * 20001 + 1] -= 0.3f;  // a click
  for (std::size_t frame = kFrames - 10; frame < kFrames; ++frame) {
    samples[2 * frame] -= 0.2f;
  }
  // A drum: noise that begins at once and dies away.
  const std::vector<float> noise = Noise(4800).samples;
  for (std::size_t frame = 0; frame < 4800; ++frame) {
    samples[2 * (30000 + frame)] +=
        noise[2 * frame] * std::exp(-static_cast<float>(frame) / 1000.0f);
  }
  const json steps = Examine(Bytes(samples), "--channels 2")["discontinuities"];
  EXPECT_EQ("10240+1 in 0, 20001+1 in 1, 47990+1 in 0", Events(steps));
  EXPECT_NEAR(0.2, steps["events"][0]["step"], 0.02);
  EXPECT_EQ(0, Examine(Bytes(Noise(kFrames).samples))["discontinuities"]["count"]);
  // The begin of a tone is no discontinuity, and an absurd sample does not hide a later one.
  samples = Tones(2);
  std::fill_n(samples.begin(), 2 * 480, 0.0f);
  for (std::size_t frame = 480; frame < 4800; ++frame) {
    const auto phase = static_cast<float>(frame - 480) * 0.05f;
    samples[2 * frame] = samples[2 * frame + 1] = 0.5f * std::sin(phase);
  }
  samples[2 * 20000] = 1e30f;
  for (std::size_t frame = 30000; frame < kFrames; ++frame) {
    samples[2 * frame] += 0.2f;
  }
  const std::string absurd = Events(Examine(Bytes(samples), "--any-level")["discontinuities"]);
  EXPECT_TRUE(Holds(absurd, "20000+1 in 0")) << absurd;
  EXPECT_TRUE(Holds(absurd, "30000+1 in 0")) << absurd;
  EXPECT_FALSE(Holds(absurd, "480+1")) << absurd;
}

TEST_F(Capture, RefusesWhatIsNone) {
  folder_.Write("empty.pcm", "");
  folder_.Write("short.pcm", "1234567");
  folder_.Write("good.pcm", Bytes(Tones(2)));
  const std::string good = folder_ / "good.pcm";
  ExpectRefused(3, "No such file", {"capture", folder_ / "none.pcm"});
  ExpectRefused(3, "it is a directory", {"capture", folder_ / ""});
  ExpectRefused(3, "it is a device", {"capture", "/dev/zero"});
  ExpectRefused(3, "no whole frame", {"capture", folder_ / "empty.pcm"});
  ExpectRefused(3, "no whole frame", {"capture", folder_ / "short.pcm", "-o", out_});
  ExpectRefused(2, "--channels", {"capture", good, "--channels", "9"});
  ExpectRefused(2, "unknown ending", {"capture", good, "-o", folder_ / "out.mp3"});
  ExpectRefused(4, "", {"capture", good, "-o", out_}, {.file_size_limit_bytes = 65536});
  EXPECT_EQ(3u, folder_.Names().size());
}

TEST_F(Capture, RefusesOtherFilesAndSaysWhatTheyAre) {
  WriteAudio(folder_ / "song.wav", Noise(48000));
  ExpectRefused(3,
                "song.wav: a WAV file (it begins with 'RIFF'), not a raw capture. 'kelda render'",
                {"capture", folder_ / "song.wav", "-o", out_});
  for (const std::string head : {"OggS", "fLaC", "ID3\x04"}) {
    folder_.Write("song", head + std::string(4096, '\0'));
    ExpectRefused(3, "song: a", {"capture", folder_ / "song"});
  }
  folder_.Write("notes", "a text, which would be very loud");
  ExpectRefused(3, "notes: not a raw capture: channel 0 reaches +", {"capture", folder_ / "notes"});
  // Late, in the second channel: a capture of a chain that went wrong?
  std::vector<float> samples = Tones(2);
  samples[2 * 40000 + 1] = -1001;
  folder_.Write("loud", Bytes(samples));
  ExpectRefused(3, "channel 1 reaches +60.0 dBFS at frame 40000 (at most +60)",
                {"capture", folder_ / "loud", "-o", out_});
  EXPECT_FALSE(folder_.Names().contains("out.wav"));
  EXPECT_EQ(40000, Examine(Bytes(samples), "--any-level")["channels"][1]["peak_frame"]);
}

TEST_F(Capture, ListsForAReader) {
  std::vector<float> samples = Tones(2);
  for (const std::size_t frame : {10000, 20000, 30000}) {
    samples[2 * frame] += 0.5f;
  }
  folder_.Write("capture.pcm", Bytes(samples) + "xyz");
  const ProgramResult result = Succeed({"capture", folder_ / "capture.pcm", "--list", "2"});
  for (const char* text :
       {"48000 frames, 0:01.0000 at 48 kHz; 2 channels, interleaved (guessed: ",
        "cut off: its last 3 bytes", "Discontinuities: 3\n  0:00.2083  frame 10000 ",
        "784 frames into a period", "  and 1 more\n", "Clipping: none"}) {
    EXPECT_TRUE(Holds(result.out, text));
  }
}

}  // namespace
}  // namespace kelda::tools
