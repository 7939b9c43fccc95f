// What the level control does to sound, with libebur128 as the meter.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "tests/upmix-lib/level_control_instance.h"
#include "tests/upmix-lib/programmes.h"
#include "upmix-lib/level_control.h"

namespace kelda::upmix_lib {
namespace {

constexpr size_t kLatency = 48;

size_t BlocksIn(double seconds) {
  return static_cast<size_t>(std::lround(seconds * kSampleRateHz / kBlockFrames));
}

std::span<const float> Between(const std::vector<float>& frames, double from_s, double to_s) {
  const auto sample = [](double s) { return 2 * BlocksIn(s) * kBlockFrames; };
  return std::span(frames).subspan(sample(from_s), sample(to_s) - sample(from_s));
}

std::vector<float> Sine(double freq_hz, double level_db, double seconds, double phase = 0) {
  std::vector<float> frames(2 * BlocksIn(seconds) * kBlockFrames);
  const double amplitude = std::pow(10.0, level_db / 20);
  for (size_t i = 0; i < frames.size() / 2; ++i) {
    const double angle =
        2 * std::numbers::pi * freq_hz * static_cast<double>(i) / kSampleRateHz + phase;
    frames[2 * i] = frames[2 * i + 1] = static_cast<float>(amplitude * std::sin(angle));
  }
  return frames;
}

LevelParameters LimiterOnly(float ceiling_dbtp) {
  LevelParameters parameters = DefaultLevel();
  parameters.strength = 0;
  parameters.ceiling_dbtp = ceiling_dbtp;
  return parameters;
}

// The signal without its best fitting sine, relative to that, in dB.
double ThdPlusNoiseDb(std::span<const float> frames, double freq_hz) {
  const size_t count = frames.size() / 2;
  double sine_sum = 0, cosine_sum = 0, ss = 0, cc = 0, sc = 0;
  const auto angle = [&](size_t i) {
    return 2 * std::numbers::pi * freq_hz * static_cast<double>(i) / kSampleRateHz;
  };
  for (size_t i = 0; i < count; ++i) {
    const double s = std::sin(angle(i)), c = std::cos(angle(i)), x = frames[2 * i];
    sine_sum += s * x;
    cosine_sum += c * x;
    ss += s * s;
    cc += c * c;
    sc += s * c;
  }
  const double determinant = ss * cc - sc * sc;
  const double a = (sine_sum * cc - cosine_sum * sc) / determinant;
  const double b = (cosine_sum * ss - sine_sum * sc) / determinant;
  double residue = 0, fundamental = 0;
  for (size_t i = 0; i < count; ++i) {
    const double fit = a * std::sin(angle(i)) + b * std::cos(angle(i));
    residue += std::pow(static_cast<double>(frames[2 * i]) - fit, 2);
    fundamental += fit * fit;
  }
  return 10 * std::log10(residue / fundamental);
}

TEST(LoudnessMeter, ReadsWhatLibebur128Reads) {
  for (const std::vector<float>& programme : {MakeMusic(12, 1), MakeSpeech(12, 2)}) {
    for (const double lufs : {-9.0, -45.0}) {
      const std::vector<float> frames = AtLoudness(programme, lufs);
      LoudnessMeter meter(60);
      for (size_t at = 0; at < frames.size(); at += 2 * kBlockFrames) {
        meter.Process(&frames[at], kBlockFrames);
      }
      EXPECT_NEAR(meter.LoudnessLufs(), lufs, 0.05);
    }
  }
}

// A second of sound after a pause: blocks that reach into the pause do not count.
TEST(LoudnessMeter, MeasuresAfreshAfterAPause) {
  LoudnessMeter meter(30);
  const auto run = [&](const std::vector<float>& frames) {
    for (size_t at = 0; at < frames.size(); at += 2 * kBlockFrames) {
      meter.Process(&frames[at], kBlockFrames);
    }
  };
  run(Sine(997, -10, 5));
  run(std::vector<float>(2 * BlocksIn(3) * kBlockFrames));
  EXPECT_FALSE(meter.sounding());
  EXPECT_GT(meter.programme_s(), 4) << "the pause itself freezes the measure";
  const std::vector<float> quiet = Sine(997, -35, 1.5);
  run(quiet);
  EXPECT_LT(meter.programme_s(), 1.5);
  EXPECT_NEAR(meter.LoudnessLufs(), MeasureLufs(quiet), 0.1);
  EXPECT_NEAR(20 * std::log10(meter.Peak()), -35, 0.1);
}

TEST(LevelControl, BringsProgrammesToTheTarget) {
  const double target_lufs = DefaultLevel().target_lufs;
  for (const std::vector<float>& programme : {MakeMusic(15, 3), MakeSpeech(15, 4)}) {
    for (const double lufs : {-30.0, -14.0, -9.0}) {
      const LevelControlInstance control(DefaultLevel());
      const std::vector<float> out = control.Process(AtLoudness(programme, lufs));
      EXPECT_NEAR(MeasureLufs(Between(out, 10, 15)), target_lufs, 1.0) << "from " << lufs;
    }
  }
}

TEST(LevelControl, WantsWhatTargetAndLimitsAllow) {
  LevelParameters parameters = DefaultLevel();
  parameters.target_lufs = -16;
  parameters.max_boost_db = 15;
  parameters.max_cut_db = 10;
  parameters.max_limiting_db = 3;
  parameters.ceiling_dbtp = -1;
  const struct {
    double loudness_lufs, peak_dbfs, wanted_db;
  } cases[] = {
      {-23, -12, 7},   // all of the way
      {-9, 0, -7},     //
      {-40, -30, 15},  // as far as the boost may go
      {-2, 0, -10},    // as far as the cut may go
      {-30, -6, 8},    // as far as the limiter may take back: -6 + 8 is 3 over the ceiling
      {-30, 6, 0},     // no boost left, and no cut for it
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(WantedGainDb(parameters, c.loudness_lufs, c.peak_dbfs), c.wanted_db, 1e-9)
        << c.loudness_lufs << " LUFS, " << c.peak_dbfs << " dBFS";
  }
  parameters.strength = 0.5f;
  EXPECT_NEAR(WantedGainDb(parameters, -23, -12), 3.5, 1e-9);
}

// The silence begins while the gain is on its way.
TEST(LevelControl, SilenceFreezesTheGainAndStaysSilent) {
  const std::vector<float> programme = Sine(997, -30, 3);
  const LevelControlInstance control(DefaultLevel());
  const std::vector<float> out = control.Process(programme);
  const std::vector<float> tail =
      control.Process(std::vector<float>(2 * BlocksIn(20) * kBlockFrames));
  EXPECT_TRUE(std::all_of(tail.begin() + 2 * kLatency, tail.end(), [](float s) { return s == 0; }));
  const std::vector<float> again = control.Process(programme);
  const auto peak_db = [](std::span<const float> frames) {
    return 20 * std::log10(*std::max_element(frames.begin(), frames.end()));
  };
  const double before_db = peak_db(std::span(out).last(500));
  EXPECT_GT(before_db, -27);
  EXPECT_LT(before_db, -18) << "no longer on its way";
  const double half_a_second_db = 0.5 * DefaultLevel().boost_db_per_s;  // till silence is known
  EXPECT_NEAR(peak_db(std::span(again).first(600)), before_db, half_a_second_db + 0.1);
}

TEST(LevelControl, TheGainKeepsItsSpeedAndComesToRest) {
  LevelParameters parameters = DefaultLevel();
  LevelGain gain;
  const auto run = [&](double wanted_db, double seconds) {
    double fastest_rise = 0, fastest_fall = 0;
    for (int step = 0; step < std::lround(seconds / 0.02); ++step) {
      const double before = gain.gain_db();
      gain.Approach(wanted_db, 0.02, parameters);
      fastest_rise = std::max(fastest_rise, (gain.gain_db() - before) / 0.02);
      fastest_fall = std::max(fastest_fall, (before - gain.gain_db()) / 0.02);
    }
    return std::pair(fastest_rise, fastest_fall);
  };
  EXPECT_NEAR(run(14, 10).first, parameters.boost_db_per_s, 1e-3);
  EXPECT_NEAR(gain.gain_db(), 14, 0.06);
  const double at_rest = gain.gain_db();
  run(at_rest + 0.29, 10);
  EXPECT_EQ(gain.gain_db(), at_rest);
  EXPECT_NEAR(run(-20, 10).second, parameters.cut_db_per_s, 1e-3);
}

TEST(LevelControl, BelowTheCeilingTheLimiterIsADelay) {
  std::vector<float> in = AtLoudness(MakeMusic(12, 6), -30);
  ASSERT_LT(MeasureTruePeakDb(in), -2);
  std::fill_n(in.begin() + 2000, 4000, 4.0f);  // limited, then released for good
  const std::vector<float> out = LevelControlInstance(LimiterOnly(-1)).Process(in);
  const auto is_delayed = [&](size_t from, size_t to) {
    return std::equal(in.begin() + static_cast<ptrdiff_t>(from),
                      in.begin() + static_cast<ptrdiff_t>(to),
                      out.begin() + static_cast<ptrdiff_t>(from + 2 * kLatency));
  };
  EXPECT_TRUE(std::all_of(out.begin(), out.begin() + 2 * kLatency, [](float s) { return s == 0; }));
  EXPECT_TRUE(is_delayed(0, 1800));
  EXPECT_FALSE(is_delayed(2000, 6000));
  EXPECT_TRUE(is_delayed(2 * 10 * kSampleRateHz, in.size() - 2 * kLatency));
}

TEST(LevelControl, SinesBelowTheCeilingStayPure) {
  for (const double freq_hz : {60.0, 8000.0}) {
    for (const double level_db : {-30.0, -12.0, -3.0}) {
      const std::vector<float> out =
          LevelControlInstance(DefaultLevel()).Process(Sine(freq_hz, level_db, 17));
      EXPECT_LT(ThdPlusNoiseDb(Between(out, 15, 17), freq_hz), -100)
          << freq_hz << " Hz at " << level_db << " dB";
    }
  }
}

// Bursts of +12 dBFS out of a faint programme, with the gain of the levelling on top.
TEST(LevelControl, BurstsStayUnderTheCeiling) {
  constexpr uint32_t kSeed = 99;
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<float> unit(-1, 1);
  double worst_db = -100;
  const std::vector<float> programme = AtLoudness(MakeMusic(4, 7), -35);
  for (const float ceiling_dbtp : {0.0f, -9.0f}) {
    for (const float strength : {0.0f, 1.0f}) {
      for (const double freq_hz : {0.0, 50.0, 997.0, 12000.0, 15000.0, 19000.0, -1.0, -2.0}) {
        std::vector<float> frames = programme;
        std::vector<float> burst = Sine(std::max(freq_hz, 0.0), 12, 4, 0.7);
        for (size_t i = 0; i < burst.size(); ++i) {
          burst[i] = freq_hz == -1   ? 4 * unit(random)
                     : freq_hz == -2 ? (unit(random) > 0.99f ? 4.0f : 0.0f)
                                     : burst[i];
        }
        for (size_t at = 2 * 48000; at + 4801 < frames.size(); at += 2 * 9777) {
          const auto length = static_cast<size_t>(2 * (1 + std::fabs(unit(random)) * 2400));
          std::copy_n(burst.begin() + static_cast<ptrdiff_t>(at), length,
                      frames.begin() + static_cast<ptrdiff_t>(at));
        }
        LevelParameters parameters = LimiterOnly(ceiling_dbtp);
        parameters.strength = strength;
        parameters.limiter_release_ms = strength == 0 ? 5 : 80;
        const std::vector<float> out = LevelControlInstance(parameters).Process(frames);
        const double over_db = MeasureTruePeakDb(out) - ceiling_dbtp;
        worst_db = std::max(worst_db, over_db);
        EXPECT_LE(over_db, 0.1) << "seed " << kSeed << ", ceiling " << ceiling_dbtp << ", burst "
                                << freq_hz << " Hz, strength " << strength;
        EXPECT_GE(over_db, -1.5) << "limited too far: " << freq_hz;
      }
    }
  }
  RecordProperty("worst_over_db", std::to_string(worst_db));
}

// Limiting must not depend on where the blocks begin.
TEST(LevelControl, BlockBordersLeaveNoTrace) {
  const std::vector<float> in = AtLoudness(MakeMusic(4, 8), -9);
  ASSERT_GT(MeasureTruePeakDb(in), 3) << "nothing to limit";
  constexpr size_t kShift = 2 * 8 * 61;
  std::vector<float> late(in.size());
  std::copy(in.begin(), in.end() - kShift, late.begin() + kShift);
  const std::vector<float> out = LevelControlInstance(LimiterOnly(-1)).Process(in);
  const std::vector<float> late_out = LevelControlInstance(LimiterOnly(-1)).Process(late);
  EXPECT_TRUE(std::equal(out.begin(), out.end() - kShift, late_out.begin() + kShift));
}

TEST(LevelControl, BadSamplesCountAsSilence) {
  using Limits = std::numeric_limits<float>;
  const std::vector<float> good = AtLoudness(MakeMusic(3, 9), -14);
  std::vector<float> bad = good, zeroed = good;
  size_t at = 1000;
  for (const float sample : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                             Limits::max(), Limits::denorm_min()}) {
    bad[at] = sample;
    zeroed[at] = 0;
    at += 777;
  }
  EXPECT_EQ(LevelControlInstance(DefaultLevel()).Process(bad),
            LevelControlInstance(DefaultLevel()).Process(zeroed));
}

TEST(LevelControl, OneWildSampleDoesNotSilenceTheProgramme) {
  std::vector<float> frames = AtLoudness(MakeMusic(15, 3), -16);
  frames[2 * 5 * 48000] = 60000.0f;
  const std::vector<float> out = LevelControlInstance(DefaultLevel()).Process(frames);
  EXPECT_NEAR(MeasureLufs(Between(out, 10, 15)), -16, 1.0);
}

TEST(LevelControl, OrderOfCallsIsChecked) {
  uint32_t work_bytes = 0, param_bytes = 0;
  EXPECT_EQ(A0557(nullptr, &param_bytes), kNullPointer);
  EXPECT_EQ(A0557(&work_bytes, nullptr), kNullPointer);
  ASSERT_EQ(A0557(&work_bytes, &param_bytes), kOk);
  const auto memory = std::make_unique<std::byte[]>(work_bytes);
  void* const work = memory.get();
  const LevelParameters good = DefaultLevel();
  LevelParameters bad = good;
  bad.target_lufs = 3;
  const std::vector<float> in(2 * kBlockFrames, 0.1f);
  std::vector<float> out(in.size(), 7.0f);

  EXPECT_EQ(A0122(work, &good), kNotAnInstance);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kNotAnInstance);
  EXPECT_EQ(A0508(nullptr, kBlockFrames), kNullPointer);
  EXPECT_EQ(A0508(work, kBlockFrames - 1), kBadFrameCount);
  EXPECT_EQ(A0508(work, 0), kBadFrameCount);
  ASSERT_EQ(A0508(work, kBlockFrames), kOk);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kNotConfigured);
  EXPECT_EQ(A0122(nullptr, &good), kNullPointer);
  EXPECT_EQ(A0122(work, nullptr), kNullPointer);
  EXPECT_EQ(A0122(work, &bad), kDataBadCrc);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kNotConfigured) << "half configured";
  EXPECT_EQ(out, std::vector<float>(in.size(), 7.0f)) << "a failure wrote";
  EXPECT_EQ(A0122(work, &good), kOk);
  EXPECT_EQ(A0217(nullptr, in.data(), out.data()), kNullPointer);
  EXPECT_EQ(A0217(work, nullptr, out.data()), kNullPointer);
  EXPECT_EQ(A0217(work, in.data(), nullptr), kNullPointer);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kOk);
  EXPECT_EQ(A0122(work, &bad), kDataBadCrc);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kOk) << "a refused change ended the old state";
  ASSERT_EQ(A0508(work, kBlockFrames), kOk);
  EXPECT_EQ(A0217(work, in.data(), out.data()), kNotConfigured);
}

}  // namespace
}  // namespace kelda::upmix_lib
