#include "tests/upmix-lib/programmes.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <random>

#include "upmix-lib/data_formats.h"

namespace kelda::upmix_lib {
namespace {

size_t FramesOf(double seconds) {
  const auto blocks = static_cast<size_t>(std::ceil(seconds * kSampleRateHz / kBlockFrames));
  return blocks * kBlockFrames;
}

// Noise that falls by 3 dB an octave, near enough (P. Kellet's filter).
class PinkNoise {
 public:
  double Next(std::mt19937& random) {
    const double white = std::uniform_real_distribution<>(-1, 1)(random);
    low_ = 0.99765 * low_ + 0.0990460 * white;
    mid_ = 0.96300 * mid_ + 0.2965164 * white;
    high_ = 0.57000 * high_ + 1.0526913 * white;
    return low_ + mid_ + high_ + 0.1848 * white;
  }

 private:
  double low_ = 0, mid_ = 0, high_ = 0;
};

auto MakeMeter(std::span<const float> frames, int mode) {
  const auto destroy = [](ebur128_state* state) { ebur128_destroy(&state); };
  std::unique_ptr<ebur128_state, decltype(destroy)> meter(ebur128_init(2, kSampleRateHz, mode),
                                                          destroy);
  EXPECT_EQ(ebur128_add_frames_float(meter.get(), frames.data(), frames.size() / 2), 0);
  return meter;
}

}  // namespace

std::vector<float> MakeMusic(double seconds, uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<> unit(0, 1);
  PinkNoise left, right;
  std::vector<float> frames(2 * FramesOf(seconds));
  double note_hz = 220, note_level = 0, stroke_level = 0, phase = 0, pan = 0.5;
  for (size_t i = 0; i < frames.size() / 2; ++i) {
    if (i % 12000 == 0) {  // four notes a second
      note_hz = 110 * std::pow(2.0, std::floor(24 * unit(random)) / 12);
      note_level = 0.3 + 0.7 * unit(random);
      pan = unit(random);
    }
    if (i % 24000 == 6000) {  // two strokes
      stroke_level = 0.15 + 0.15 * unit(random);
    }
    note_level *= 0.99993;
    stroke_level *= 0.9985;
    phase += 2 * std::numbers::pi * note_hz / kSampleRateHz;
    const double note = note_level * (std::sin(phase) + 0.4 * std::sin(2 * phase));
    const double noise_level = 0.03 + stroke_level;
    frames[2 * i] = static_cast<float>((1 - pan) * note + noise_level * left.Next(random));
    frames[2 * i + 1] = static_cast<float>(pan * note + noise_level * right.Next(random));
  }
  return frames;
}

std::vector<float> MakeSpeech(double seconds, uint32_t seed) {
  std::mt19937 random(seed);
  PinkNoise noise;
  std::vector<float> frames(2 * FramesOf(seconds));
  for (size_t i = 0; i < frames.size() / 2; ++i) {
    const double time_s = static_cast<double>(i) / kSampleRateHz;
    const double syllable = std::max(std::sin(2 * std::numbers::pi * 4 * time_s), 0.0);
    const bool pause = std::fmod(time_s, 3.0) > 2.5;
    frames[2 * i] = frames[2 * i + 1] =
        static_cast<float>(noise.Next(random) * (pause ? 0.001 : 0.05 + syllable));
  }
  return frames;
}

std::vector<float> AtLoudness(std::vector<float> frames, double lufs) {
  const auto gain = static_cast<float>(std::pow(10.0, (lufs - MeasureLufs(frames)) / 20));
  for (float& sample : frames) {
    sample *= gain;
  }
  return frames;
}

double MeasureLufs(std::span<const float> frames) {
  double lufs = 0;
  EXPECT_EQ(ebur128_loudness_global(MakeMeter(frames, EBUR128_MODE_I).get(), &lufs), 0);
  return lufs;
}

double MeasureTruePeakDb(std::span<const float> frames) {
  const auto meter = MakeMeter(frames, EBUR128_MODE_TRUE_PEAK);
  double left = 0, right = 0;
  EXPECT_EQ(ebur128_true_peak(meter.get(), 0, &left), 0);
  EXPECT_EQ(ebur128_true_peak(meter.get(), 1, &right), 0);
  return 20 * std::log10(std::max(left, right));
}

}  // namespace kelda::upmix_lib
