// What `kelda render` reads: whole, cut off, with many channels, at any rate.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <filesystem>
#include <numbers>

#include "tests/laboratory/audio_files.h"
#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tools/audio/rate_converter.h"
#include "tools/audio/stereo_fold.h"
#include "tools/core/decibels.h"

namespace kelda::tools {
namespace {

constexpr int kVorbis = SF_FORMAT_OGG | SF_FORMAT_VORBIS;
constexpr int kMp3 = SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III;

class SoundFiles : public testing::Test {
 protected:
  void Write(const std::string& name, int format, Audio audio) {
    audio.format = format;
    WriteAudio(folder_ / name, audio);
  }

  // What comes out of the file unchanged but for its rate and channels.
  Audio Played(const std::string& name, int exit_code = 0, const std::string& message = "",
               const ProgramSurroundings& surroundings = {}) {
    const ProgramResult result = RunKelda(
        {"render", "-yq", "--mode", "off", folder_ / name, folder_ / "out.wav"}, surroundings);
    EXPECT_EQ(exit_code, result.exit_code) << name << ": " << result.err;
    EXPECT_TRUE(message.empty() ? result.err.empty() : bool(Holds(result.err, message)))
        << name << ": " << result.err;
    return ReadAudio(folder_ / "out.wav");
  }

  // Makes one file of another with ffmpeg.
  void Convert(const std::string& from, const std::string& options, const std::string& to) {
    const std::string command =
        "ffmpeg -v error -y -i " + (folder_ / from) + " " + options + " " + (folder_ / to);
    ASSERT_EQ(0, std::system(command.c_str())) << command;
  }

  void Cut(const std::string& name, double part) {
    const auto bytes = static_cast<double>(std::filesystem::file_size(folder_ / name));
    std::filesystem::resize_file(folder_ / name, static_cast<uintmax_t>(bytes * part));
  }

  const TemporaryFolder folder_;
};

// Two seconds of noise and then of silence, so that bits per second do not tell the length.
Audio NoiseThenSilence() {
  Audio audio = Noise(96000);
  audio.samples.resize(audio.samples.size() * 2, 0.0f);
  return audio;
}

TEST_F(SoundFiles, PlayToTheirEnd) {
  const Audio noise = Noise(3000);
  for (const int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_24, SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
                           SF_FORMAT_AIFF | SF_FORMAT_PCM_24}) {
    Write("in", format, noise);
    EXPECT_TRUE(noise.samples == Played("in").samples) << format;
  }
  std::vector<float> twice;
  for (const float sample : Noise(3000, 1).samples) {
    twice.insert(twice.end(), {sample, sample});
  }
  Write("in", SF_FORMAT_WAV | SF_FORMAT_FLOAT, Noise(3000, 1));
  EXPECT_TRUE(twice == Played("in").samples);
  for (const int format : {kVorbis, SF_FORMAT_OGG | SF_FORMAT_OPUS}) {
    Write("in", format, noise);
    EXPECT_EQ(3000, Played("in").frames()) << format;
  }
  // A program that writes into a pipe does not know the size, and writes the largest.
  Write("in", SF_FORMAT_WAV | SF_FORMAT_PCM_24, noise);
  std::string piped = folder_.Read("in");
  piped.replace(piped.find("data") + 4, 4, "\xFF\xFF\xFF\xFF");
  folder_.Write("in", piped);
  EXPECT_TRUE(noise.samples == Played("in").samples);
  // One that was killed leaves none at all.
  piped.replace(4, 4, 4, '\0').replace(piped.find("data") + 4, 4, 4, '\0');
  folder_.Write("in", piped);
  EXPECT_TRUE(noise.samples == Played("in").samples);
  Write("in", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, noise);
  folder_.Write("in", folder_.Read("in") + "TAG" + std::string(125, ' '));
  EXPECT_TRUE(noise.samples == Played("in").samples);
}

// Without the frame in front that states the length, decoders only guess it.
TEST_F(SoundFiles, Mp3OfAnyLengthPlaysWhole) {
  constexpr int64_t kMpegFrame = 1152;
  const Audio audio = NoiseThenSilence();
  for (const int mode : {SF_BITRATE_MODE_CONSTANT, SF_BITRATE_MODE_VARIABLE}) {
    Audio written = audio;
    written.format = kMp3;
    WriteAudio(folder_ / "in.mp3", written, mode);
    EXPECT_EQ(audio.frames(), Played("in.mp3").frames()) << mode;
    std::string bytes = folder_.Read("in.mp3");
    const std::size_t tag = bytes.find(mode == SF_BITRATE_MODE_CONSTANT ? "Info" : "Xing");
    ASSERT_LT(tag, 100u) << mode;
    bytes.erase(0, bytes.find("\xFF\xFB", tag));
    folder_.Write("in.mp3", bytes + "TAG" + std::string(125, ' '));
    EXPECT_NEAR(static_cast<double>(audio.frames()), static_cast<double>(Played("in.mp3").frames()),
                2.0 * kMpegFrame)
        << mode;
  }
}

TEST_F(SoundFiles, WhatIsCutOffPlaysAsFarAsItGoes) {
  const Audio audio = Noise(96000);
  const std::tuple<const char*, int, std::string> kCases[] = {
      {"in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, "it was cut off: "},
      {"in.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, "it was cut off: "},
      {"in.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
       " of 0:02.000; what was there is in the output"},
      {"in.mp3", kMp3, " of 0:02.000; "},
      {"in.ogg", kVorbis, "it was cut off: the end of its last Ogg stream is missing"}};
  for (const auto& [name, format, message] : kCases) {
    Write(name, format, audio);
    Cut(name, 0.75);
    const Audio played = Played(name, 7, "kelda: warning: " + (folder_ / name) + ": it ");
    EXPECT_TRUE(played.frames() > 48000 && played.frames() < 76000) << name << played.frames();
    Played(name, 7, message);
    const bool lossless = format != kMp3 && format != kVorbis;
    EXPECT_TRUE(!lossless ||
                std::equal(played.samples.begin(), played.samples.end(), audio.samples.begin()))
        << name;
  }
  // Its decoder says nothing of a page that it leaves out.
  Write("in.ogg", kVorbis, audio);
  const std::string whole = folder_.Read("in.ogg");
  folder_.Write("in.ogg", std::string(whole).replace(whole.size() / 2, 40, 40, 'x'));
  EXPECT_LT(Played("in.ogg", 7, "it is damaged: Ogg pages are missing").frames(), 96000);
}

TEST_F(SoundFiles, ChainedOggPlaysWhole) {
  Write("a", kVorbis, Noise(48000));
  Audio other = Noise(22050, 1);
  other.rate_hz = 44100;
  Write("b", kVorbis, other);
  folder_.Write("in", folder_.Read("a") + folder_.Read("b") + folder_.Read("a"));
  const Audio played = Played("in");
  ASSERT_EQ(48000 + 24000 + 48000, played.frames());
  for (const std::size_t start : {0, 48000, 72000}) {
    double energy = 0;
    for (std::size_t i = 2 * start; i < 2 * (start + 20000); ++i) {
      energy += double{played.samples[i]} * played.samples[i];
    }
    EXPECT_NEAR(1.0 / 12, energy / 40000, 0.02) << start;
  }
}

TEST_F(SoundFiles, FfmpegReadsTheRest) {
  const ProgramSurroundings without{.environment = {{"PATH", folder_ / ""}}};
  Write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, NoiseThenSilence());
  Convert("in.wav", "-c:a aac", "in.m4a");
  EXPECT_NEAR(192000, static_cast<double>(Played("in.m4a").frames()), 2048);
  const std::string played = folder_.Read("out.wav");
  EXPECT_EQ(std::string(4, '\0'), played.substr(played.find("PEAK") + 12, 4)) << "the time of day";
  Convert("in.wav", "-f lavfi -i color=s=32x32:d=4 -c:a pcm_f32le", "film.mkv");
  EXPECT_TRUE(NoiseThenSilence().samples == Played("film.mkv").samples);
  std::filesystem::remove(folder_ / "out.wav");
  const std::vector<std::string> render{"render", folder_ / "in.m4a", folder_ / "out.wav"};
  ExpectRefused(3, "once ffmpeg is installed", render, without);
  std::string nothing_decodes = folder_.Read("in.m4a");
  std::fill(nothing_decodes.begin() + static_cast<long>(nothing_decodes.find("mdat") + 4),
            nothing_decodes.begin() + static_cast<long>(nothing_decodes.find("moov") - 4), '\xFF');
  folder_.Write("in.m4a", nothing_decodes);
  ExpectRefused(3, "cannot be read: it is damaged: ffmpeg: ", render);
  Cut("in.m4a", 0.5);
  ExpectRefused(3, "cannot be read: ffmpeg: ", render);
  Cut("film.mkv", 0.5);
  EXPECT_LT(Played("film.mkv", 7, "it is damaged: ffmpeg: ").frames(), 120000);
  // The same fold, whoever reads the channels.
  for (const int channels : {6, 8}) {
    Write("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, Noise(3000, channels));
    Convert("in.wav", "-c:a pcm_f32le", "film.mkv");
    const std::string note = std::to_string(channels - 1) + ".1 is folded to stereo (ITU-R BS.775";
    EXPECT_TRUE(Played("in.wav", 0, note, without).samples == Played("film.mkv", 0, note).samples)
        << channels;
  }
}

TEST(StereoFold, MixesByBs775) {
  using Place = ChannelPlace;
  const auto folded = [](std::vector<Place> places, const std::vector<float>& frame) {
    const std::size_t channels = frame.size();
    std::array<float, 2> stereo{};
    StereoFold({48000, std::move(places), channels}, "in").Fold(frame.data(), 1, stereo.data());
    return stereo;
  };
  constexpr float kHalfPower = std::numbers::sqrt2_v<float> / 2;
  const std::vector<Place> side{Place::kLeft, Place::kCentre,   Place::kRight,
                                Place::kLfe,  Place::kSideLeft, Place::kSideRight};
  for (const auto& stereo :
       {folded(side, {1, 2, 4, 8, 16, 32}), folded(UsualPlaces(6), {1, 4, 2, 8, 16, 32})}) {
    EXPECT_FLOAT_EQ(1 + kHalfPower * (2 + 16), stereo[0]);
    EXPECT_FLOAT_EQ(4 + kHalfPower * (2 + 32), stereo[1]);
  }
  const std::array<float, 2> seven = folded(UsualPlaces(8), {1, 4, 2, 8, 16, 32, 64, 128});
  EXPECT_FLOAT_EQ(1 + kHalfPower * (2 + 16 + 64), seven[0]);
  EXPECT_FLOAT_EQ(4 + kHalfPower * (2 + 32 + 128), seven[1]);
  EXPECT_EQ(
      "7.1 is folded to stereo (ITU-R BS.775, the back pair added to the sides, the LFE left "
      "out)",
      StereoFold({48000, UsualPlaces(8), 8}, "in").note());
  EXPECT_EQ((std::array<float, 2>{3, 3}), folded(UsualPlaces(1), {3}));
}

// A tone, at full scale, on the left; and what is left of it at 48 kHz: its gain in dB, and in dB
// below it everything else. Its phase is the tone's own, so nothing is delayed.
struct Conversion {
  double gain_db;
  double rest_db;
};

Conversion ConvertTone(int rate_hz, double hz) {
  std::vector<float> input;
  for (int frame = 0; frame < rate_hz / 4; ++frame) {
    input.push_back(static_cast<float>(std::sin(2 * std::numbers::pi * hz * frame / rate_hz)));
    input.push_back(0);
  }
  RateConverter converter(rate_hz, 48000);
  std::vector<float> output;
  converter.Push(input.data(), 1000, &output);
  converter.Push(input.data() + 2000, input.size() / 2 - 1000, &output);
  converter.Finish(&output);
  EXPECT_EQ(12000u, output.size() / 2);
  // A window of cosines: what leaks from the tone is below -150 dB.
  constexpr std::size_t kFirst = 2000, kHeard = 8000;
  double tones = 0, in_phase = 0, samples = 0, weights = 0;
  for (std::size_t i = 0; i < kHeard; ++i) {
    const std::size_t frame = kFirst + i;
    const double tone = std::sin(2 * std::numbers::pi * hz * static_cast<double>(frame) / 48000);
    const double window =
        1 - std::cos(2 * std::numbers::pi * (static_cast<double>(i) + 0.5) / kHeard);
    const double sample = output[2 * frame];
    weights += window;
    tones += window * tone * tone;
    in_phase += window * tone * sample;
    samples += window * sample * sample;
  }
  const double rest = std::max(samples - in_phase * in_phase / tones, 0.0);  // but for rounding
  return {ToDb(std::abs(in_phase / tones)), 10 * std::log10(2 * rest / weights)};
}

TEST(RateConverter, IsFlatWithoutImagesOrAliases) {
  for (const double hz : {20.0, 997.0, 10007.0, 18000.0, 20000.0}) {
    for (const int rate_hz : {44100, 88200, 96000, 192000}) {
      const Conversion tone = ConvertTone(rate_hz, hz);
      EXPECT_NEAR(0, tone.gain_db, 0.01) << hz << " Hz at " << rate_hz;
      EXPECT_LT(tone.rest_db, -120) << hz << " Hz at " << rate_hz;
    }
  }
  EXPECT_LT(ConvertTone(8000, 3000).rest_db, -120);  // the images lie in the band
  for (const double hz : {24500.0, 28000.0, 43000.0}) {
    EXPECT_LT(ConvertTone(96000, hz).rest_db, -120) << hz;  // aliases, and nothing else
  }
}

}  // namespace
}  // namespace kelda::tools
