// The whole chain of each mode, as it ships: the effect library over the open signal
// library with the default tuning, called as the framework calls it.
#include <android/log.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

constexpr std::size_t kPeriod = 1024;
constexpr std::size_t kRate = 48000;
constexpr uint32_t kMusic = 1, kCinema = 2;

// An enabled instance in a mode, on wired headphones with personalized ears, so that
// the equalizer runs, too.
class Chain {
 public:
  explicit Chain(uint32_t mode) {
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    constexpr uint32_t kPersonalized = 2;
    effect_.SetParam(test::kWiredHrtf, kPersonalized);
    effect_.SetParam(test::kMode, mode);
    effect_.SetDevice(AUDIO_DEVICE_OUT_WIRED_HEADPHONE);
    effect_.Enable();
  }

  // Whole periods of interleaved stereo, in place.
  std::vector<float> Process(std::vector<float> audio) const {
    EXPECT_EQ(audio.size() % (2 * kPeriod), 0u);
    for (std::size_t at = 0; at < audio.size(); at += 2 * kPeriod) {
      EXPECT_EQ(effect_.Process(&audio[at], &audio[at], kPeriod), 0);
    }
    return audio;
  }

 private:
  test::Effect effect_;
};

// Something like music: a centred bass, plucked tones to the sides, a hall of noise.
std::vector<float> Programme(std::size_t frames) {
  std::mt19937 random(7);
  std::normal_distribution<float> noise(0.0f, 0.01f);
  std::vector<float> audio(2 * frames);
  for (std::size_t n = 0; n < frames; ++n) {
    const double t = static_cast<double>(n) / kRate;
    const auto tone = [&](double hz, double pluck_s) {
      return std::sin(2.0 * std::numbers::pi * hz * t) * std::exp(-4.0 * std::fmod(t, pluck_s));
    };
    const double bass = 0.2 * std::sin(2.0 * std::numbers::pi * 80.0 * t);
    audio[2 * n] = static_cast<float>(bass + 0.15 * tone(440.0, 0.5)) + noise(random);
    audio[2 * n + 1] = static_cast<float>(bass + 0.15 * tone(660.0, 0.375)) + noise(random);
  }
  return audio;
}

class ModeChainTest : public testing::TestWithParam<uint32_t> {
 protected:
  ModeChainTest() {
    setenv("KELDA_DATA_DIR", DEFAULT_TUNING, 1);
    property_set("vendor.kelda.effect", "1");
  }
};

TEST_P(ModeChainTest, BadSamplesNeverLeaveAndAreForgotten) {
  constexpr std::size_t kFrames = 48 * kPeriod, kBadFrame = 20 * kPeriod + 100;
  const std::vector<float> clean = Programme(kFrames);
  std::vector<float> damaged = clean, silenced = clean;
  const float bad[] = {std::numeric_limits<float>::quiet_NaN(),
                       std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity(), 1e-42f, 3e38f};
  for (std::size_t i = 0; i < 100; ++i) {
    damaged[2 * kBadFrame + i] = bad[i % std::size(bad)];
    silenced[2 * kBadFrame + i] = 0.0f;
  }
  const std::vector<float> out = Chain(GetParam()).Process(damaged);
  const std::vector<float> expected = Chain(GetParam()).Process(silenced);
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float s) { return std::isfinite(s); }));
  EXPECT_EQ(std::memcmp(&out[2 * (kBadFrame + kRate / 10)], &expected[2 * (kBadFrame + kRate / 10)],
                        (out.size() - 2 * (kBadFrame + kRate / 10)) * sizeof(float)),
            0);
}

TEST_P(ModeChainTest, SilenceComesOutOfSilenceExactly) {
  const Chain chain(GetParam());
  const std::vector<float> loud = chain.Process(Programme(24 * kPeriod));
  EXPECT_GT(*std::max_element(loud.begin(), loud.end()), 0.05f);
  constexpr std::size_t kTailSeconds = 2;
  const std::vector<float> tail =
      chain.Process(std::vector<float>(2 * kPeriod * (kTailSeconds * kRate / kPeriod + 24)));
  EXPECT_TRUE(
      std::any_of(tail.begin(), tail.begin() + 2 * kPeriod, [](float s) { return s != 0; }));
  EXPECT_TRUE(std::all_of(tail.begin() + 2 * kTailSeconds * kRate, tail.end(),
                          [](float s) { return s == 0.0f; }));
}

// The same programme with every border elsewhere: if samples jumped at borders, the two
// runs would differ there more than anywhere.
TEST_P(ModeChainTest, NothingJumpsAtBlockBorders) {
  constexpr std::size_t kFrames = 96 * kPeriod, kShift = 500, kSettled = 40 * kPeriod;
  const std::vector<float> programme = Programme(kFrames);
  std::vector<float> shifted(2 * kFrames);
  std::copy_n(programme.begin(), 2 * (kFrames - kShift), shifted.begin() + 2 * kShift);
  const std::vector<float> one = Chain(GetParam()).Process(programme);
  const std::vector<float> other = Chain(GetParam()).Process(shifted);
  double at_borders = 0.0, elsewhere = 0.0, power = 0.0, difference_power = 0.0;
  for (std::size_t n = kSettled; n + kShift + 1 < kFrames; ++n) {
    const auto difference = [&](std::size_t frame) {
      return double{one[2 * frame]} - double{other[2 * (frame + kShift)]};
    };
    const double step = std::abs(difference(n) - difference(n - 1));
    const bool border = n % kPeriod == 0 || (n + kShift) % kPeriod == 0;
    double& largest = border ? at_borders : elsewhere;
    largest = std::max(largest, step);
    power += double{one[2 * n]} * double{one[2 * n]};
    difference_power += difference(n) * difference(n);
  }
  EXPECT_LE(at_borders, elsewhere);
  EXPECT_LT(10.0 * std::log10(difference_power / power), -20.0);
}

std::string ModeName(const testing::TestParamInfo<uint32_t>& mode) {
  return mode.param == kMusic ? "Music" : "Cinema";
}
INSTANTIATE_TEST_SUITE_P(Modes, ModeChainTest, testing::Values(kMusic, kCinema), ModeName);

}  // namespace
}  // namespace kelda
