// What the level control does to sound, with libebur128 as the meter.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <numbers>
#include <random>

#include "tests/laboratory/components.h"
#include "upmix-lib/level/level_control.h"
#include "upmix-lib/level/true_peak.h"

namespace kelda::upmix_lib {
namespace {

constexpr std::size_t kLatency = 48;

std::size_t FramesOf(double seconds) {
  return static_cast<std::size_t>(std::lround(seconds * kSampleRateHz / kBlockFrames)) * kBlock;
}

Planes Tone(double freq_hz, double level_db, double seconds) {
  return Planes(2, Sine(freq_hz, std::pow(10.0, level_db / 20), FramesOf(seconds)));
}

double PeakDb(std::span<const float> samples) {
  return 20 * std::log10(*std::max_element(samples.begin(), samples.end()));
}

LevelParameters LimiterOnly(float ceiling_dbtp) {
  LevelParameters parameters = LevelDefaults();
  parameters.strength = 0;
  parameters.ceiling_dbtp = ceiling_dbtp;
  return parameters;
}

void Measure(LoudnessMeter& meter, const Planes& stereo) {
  for (std::size_t at = 0; at < stereo[0].size(); at += kBlock) {
    Signal frames(2 * kBlock);
    for (std::size_t i = 0; i < frames.size(); ++i) {
      frames[i] = stereo[i % 2][at + i / 2];
    }
    meter.Process(frames.data(), kBlockFrames, false);
  }
}

TEST(LoudnessMeter, ReadsWhatLibebur128Reads) {
  for (const Planes& programme : {Music(12, 1), Speech(12, 2)}) {
    for (const double lufs : {-9.0, -45.0}) {
      LoudnessMeter meter(60);
      Measure(meter, AtLoudness(programme, lufs));
      EXPECT_NEAR(meter.LoudnessLufs(), lufs, 0.05);
    }
  }
}

// A second of sound after a pause: blocks that reach into the pause do not count. A flush within
// the pause does not join the two programmes.
TEST(LoudnessMeter, MeasuresAfreshAfterAPause) {
  for (const bool flushed : {false, true}) {
    LoudnessMeter meter(30);
    Measure(meter, Tone(997, -10, 5));
    Measure(meter, Planes(2, Signal(FramesOf(3))));
    EXPECT_FALSE(meter.sounding());
    EXPECT_GT(meter.programme_s(), 4) << "the pause itself freezes the measure";
    if (flushed) {
      meter.ContinueWith(30);
    }
    const Planes quiet = Tone(997, -35, 1.5);
    Measure(meter, quiet);
    EXPECT_LT(meter.programme_s(), 1.5) << flushed;
    EXPECT_NEAR(meter.LoudnessLufs(), LoudnessLufs(quiet), 0.1) << flushed;
    EXPECT_NEAR(20 * std::log10(meter.Peak()), -35, 0.1) << flushed;
  }
}

// Tones of full scale whose tops lie between two frames.
TEST(TruePeak, IsTrueUpTo20kHz) {
  constexpr int kReach = TruePeak::kReachFrames;
  for (const double freq_hz : {1000.0, 12000.0, 15000.0, 18000.0, 18500.0, 19000.0, 20000.0}) {
    for (const double top : {0.25, 0.5, 0.75}) {  // frames after the chunk's first
      const double phase =
          std::numbers::pi / 2 - 2 * std::numbers::pi * freq_hz * (kReach + top) / kSampleRateHz;
      const Signal tone = Sine(freq_hz, 1.0, TruePeak::kChunkFrames + 2 * kReach, phase);
      Signal left_only(2 * tone.size());
      for (std::size_t i = 0; i < tone.size(); ++i) {
        left_only[2 * i] = tone[i];
      }
      EXPECT_NEAR(20 * std::log10(TruePeak().OfChunk(&left_only[2 * kReach])), 0, 0.12)
          << freq_hz << " Hz, " << top;
    }
  }
}

// One wild sample does not silence the programme.
TEST(LevelControl, BringsProgrammesToTheTarget) {
  const double target_lufs = LevelDefaults().target_lufs;
  for (Planes programme : {Music(20, 3), Speech(20, 4)}) {
    for (const double lufs : {-30.0, -23.0, -14.0, -9.0}) {
      programme = AtLoudness(programme, lufs);
      EXPECT_NEAR(LoudnessLufs(LevelInstance().Process(programme), FramesOf(10)), target_lufs, 1.0)
          << "from " << lufs;
    }
    programme[0][5 * 48000] = 60000.0f;
    EXPECT_NEAR(LoudnessLufs(LevelInstance().Process(programme), FramesOf(10)), target_lufs, 1.0);
  }
}

TEST(LevelControl, WantsWhatTargetAndLimitsAllow) {
  LevelParameters parameters = LevelDefaults();
  parameters.target_lufs = -16;
  parameters.max_boost_db = 15;
  parameters.max_cut_db = 10;
  parameters.max_limiting_db = 3;
  parameters.ceiling_dbtp = -1;
  const struct {
    double loudness_lufs, peak_dbfs, wanted_db;
  } kCases[] = {
      {-23, -12, 7},   // all of the way
      {-9, 0, -7},     //
      {-40, -30, 15},  // as far as the boost may go
      {-2, 0, -10},    // as far as the cut may go
      {-30, -6, 8},    // as far as the limiter may take back: -6 + 8 is 3 over the ceiling
      {-30, 6, 0},     // no boost left, and no cut for it
  };
  for (const auto& c : kCases) {
    EXPECT_NEAR(WantedGainDb(parameters, c.loudness_lufs, c.peak_dbfs), c.wanted_db, 1e-9)
        << c.loudness_lufs << " LUFS, " << c.peak_dbfs << " dBFS";
  }
  parameters.strength = 0.5f;
  EXPECT_NEAR(WantedGainDb(parameters, -23, -12), 3.5, 1e-9);
}

TEST(LevelControl, SilenceFreezesTheGain) {
  const Planes programme = Tone(997, -22, 3);
  LevelInstance control;
  const Signal out = control.Process(programme)[0];
  control.Process(Planes(2, Signal(FramesOf(20))));
  const Signal again = control.Process(programme)[0];
  const double before_db = PeakDb(std::span(out).last(250));
  EXPECT_GT(before_db, -20);
  EXPECT_NEAR(PeakDb(std::span(again).first(300)), before_db, 0.5);
}

// The gain in dB at the end of each block, of a programme that never nears the limiter.
std::vector<double> Gains(LevelInstance& control, const Planes& programme) {
  const Planes out = control.Process(programme);
  std::vector<double> gains;
  for (std::size_t at = kBlock; at <= out[0].size(); at += kBlock) {
    gains.push_back(PeakDb(std::span(out[0]).subspan(at - 240, 240)) -
                    PeakDb(std::span(programme[0]).subspan(at - 240 - kLatency, 240)));
  }
  return gains;
}

std::size_t BlocksOf(double seconds) { return FramesOf(seconds) / kBlock; }

TEST(LevelControl, FindsTheLevelSoonAndKeepsItWhenItGoesOn) {
  for (const double level_db : {-27.0, -3.0}) {
    LevelInstance control;
    const Planes programme = Tone(997, level_db, 12);
    const std::vector<double> gains = Gains(control, programme);
    const double settled_db = gains.back();
    EXPECT_GT(std::fabs(settled_db), 8);
    for (std::size_t block = BlocksOf(1.2); block < gains.size(); ++block) {
      EXPECT_NEAR(gains[block], settled_db, 1.0) << block << " blocks after the start";
    }
    LevelParameters other = LevelDefaults();
    other.window_s = 10;
    other.gain_db = level_db < -20 ? 12.0f : 0.0f;  // which levelling takes back
    other = Sealed(other, kLevelKind);
    ASSERT_EQ(A0508(control.work(), kBlockFrames), kOk);
    ASSERT_EQ(A0122(control.work(), &other), kOk);
    for (const double gain_db : Gains(control, Tone(997, level_db, 3))) {
      EXPECT_NEAR(gain_db, settled_db, 0.3);
    }
  }
}

TEST(LevelControl, CutsAJumpAtOnceAndForgivesABurst) {
  const Planes quiet = Tone(997, -32, 10), loud = Tone(997, -14, 10);
  LevelInstance control;
  const double quiet_db = Gains(control, quiet).back();
  const std::vector<double> gains = Gains(control, loud);
  EXPECT_GT(quiet_db, gains.back() + 10);
  for (std::size_t block = BlocksOf(0.5); block < gains.size(); ++block) {
    EXPECT_LT(gains[block], gains.back() + 3) << block << " blocks after the jump";
  }
  // The cut is a slope, not a step, which would click: two frames of a sine determine the next.
  LevelInstance again;
  again.Process(quiet);
  const Signal heard = again.Process(loud)[0];
  const float turn = 2 * std::cos(2 * std::numbers::pi_v<float> * 997 / 48000);
  for (std::size_t n = 480; n + 1 < heard.size(); ++n) {
    ASSERT_NEAR(heard[n - 1] + heard[n + 1], turn * heard[n], 0.01) << n;
  }
  LevelInstance other;
  Gains(other, quiet);
  Gains(other, Tone(997, -14, 0.3));
  EXPECT_NEAR(Gains(other, quiet)[BlocksOf(3)], quiet_db, 3) << "a burst is a new programme";
}

TEST(LevelControl, TheGainKeepsItsSpeedAndComesToRest) {
  const Pace pace = {.boost_db_per_s = 3, .cut_db_per_s = 6, .ease_s = 1};
  LevelGain gain;
  // The fastest rise in ten seconds, and the fastest fall.
  const auto run = [&](double wanted_db) {
    std::pair fastest(0.0, 0.0);
    for (int step = 0; step < 500; ++step) {
      const double before = gain.gain_db();
      gain.Approach(wanted_db, 0.02, pace);
      fastest.first = std::max(fastest.first, (gain.gain_db() - before) / 0.02);
      fastest.second = std::max(fastest.second, (before - gain.gain_db()) / 0.02);
    }
    return fastest;
  };
  EXPECT_NEAR(run(14).first, pace.boost_db_per_s, 1e-3);
  EXPECT_NEAR(gain.gain_db(), 14, 0.06);
  const double at_rest = gain.gain_db();
  run(at_rest + 0.29);
  EXPECT_EQ(gain.gain_db(), at_rest);
  EXPECT_NEAR(run(-20).second, pace.cut_db_per_s, 1e-3);
}

// ---- The limiter.

TEST(LevelControl, WithoutLevellingOnlyTheFixedGainIsLeft) {
  LevelParameters parameters = LimiterOnly(-1);
  parameters.gain_db = -6.0f;
  const Planes in = AtLoudness(Music(5, 6), -20);
  const Planes out = LevelInstance(parameters).Process(in), late = Delayed(in, kLatency);
  Signal expected(late[0].size());
  AddTo(expected, late[0], std::pow(10.0f, -6.0f / 20.0f));
  EXPECT_LT(ErrorDb(out[0], expected), -120.0);
}

TEST(LevelControl, BelowTheCeilingTheLimiterIsADelay) {
  Planes in = AtLoudness(Music(12, 6), -30);
  ASSERT_LT(TruePeakDb(in), -2);
  for (Signal& plane : in) {
    std::fill_n(plane.begin() + 1000, 2000, 4.0f);  // then released for good
  }
  const Planes out = LevelInstance(LimiterOnly(-1)).Process(in), late = Delayed(in, kLatency);
  const auto is_delayed = [&](std::size_t from, std::size_t to) {
    return std::equal(&out[0][from], &out[0][to], &late[0][from]) &&
           std::equal(&out[1][from], &out[1][to], &late[1][from]);
  };
  EXPECT_TRUE(is_delayed(0, 900));
  EXPECT_FALSE(is_delayed(1000, 3000));
  EXPECT_TRUE(is_delayed(10 * kSampleRateHz, out[0].size() - 1));
}

// The signal without its best fitting sine, relative to that, in dB; of whole periods.
double ThdPlusNoiseDb(std::span<const float> signal, double freq_hz) {
  const auto turn = [&](std::size_t n) {
    return std::polar(1.0, 2 * std::numbers::pi * freq_hz * static_cast<double>(n) / kSampleRateHz);
  };
  std::complex<double> sum;
  for (std::size_t n = 0; n < signal.size(); ++n) {
    sum += double{signal[n]} * turn(n);
  }
  sum *= 2.0 / static_cast<double>(signal.size());
  std::vector<double> fit(signal.size());
  for (std::size_t n = 0; n < signal.size(); ++n) {
    fit[n] = (std::conj(sum) * turn(n)).real();
  }
  return ErrorDb(signal, fit);
}

// A gain that recovered between the peaks of a bass note would bend the note.
TEST(LevelControl, LimitedBassStaysPure) {
  const std::tuple<double, double> kLimits[] = {{40, -48}, {60, -53}, {200, -80}};
  for (const auto& [freq_hz, limit_db] : kLimits) {
    const Planes out = LevelInstance(LimiterOnly(-1)).Process(Tone(freq_hz, 5, 6));
    EXPECT_LT(ThdPlusNoiseDb(std::span(out[0]).last(kSampleRateHz), freq_hz), limit_db) << freq_hz;
  }
}

// What follows a lone peak is itself again at once, and what follows a loud passage soon.
TEST(LevelControl, ABurstIsNotHeardAfterwards) {
  const struct {
    double burst_s, after_s, most_lost_db;
  } kCases[] = {{0.01, 0.3, 0.9}, {1.0, 2.0, 0.5}};
  for (const auto& [burst_s, after_s, most_lost_db] : kCases) {
    Planes in = Tone(997, -8, 5);
    const auto burst = static_cast<std::ptrdiff_t>(burst_s * kSampleRateHz);
    for (Signal& plane : in) {
      std::for_each_n(plane.begin() + kSampleRateHz, burst, [](float& sample) { sample *= 10; });
    }
    const Planes out = LevelInstance(LimiterOnly(-1)).Process(in);
    const auto after = static_cast<std::size_t>((1 + burst_s + after_s) * kSampleRateHz);
    EXPECT_NEAR(PeakDb(std::span(out[0]).subspan(after, 480)), -8, most_lost_db) << burst_s;
  }
}

// Bursts of +12 dBFS out of a faint programme, with the gain of the levelling on top.
TEST(LevelControl, BurstsStayUnderTheCeiling) {
  constexpr uint32_t kSeed = 99;
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<float> unit(-1, 1);
  constexpr double kNoise = -1, kClicks = -2;
  const Planes faint = AtLoudness(Music(4, 7), -35);
  for (const float ceiling_dbtp : {0.0f, -9.0f}) {
    for (const float strength : {0.0f, 1.0f}) {
      for (const double freq_hz : {0.0, 50.0, 997.0, 12000.0, 15000.0, 19000.0, kNoise, kClicks}) {
        Planes in = faint;
        for (Signal& plane : in) {
          Signal burst = Sine(std::max(freq_hz, 0.0), 4.0, plane.size(), 0.7);
          for (float& sample : burst) {
            if (freq_hz == kNoise) {
              sample = 4 * unit(random);
            }
            if (freq_hz == kClicks) {
              sample = unit(random) > 0.99f ? 4.0f : 0.0f;
            }
          }
          for (std::size_t at = 48000; at + 2401 < plane.size(); at += 9777) {
            const auto length = static_cast<std::ptrdiff_t>(1 + std::fabs(unit(random)) * 2400);
            std::copy_n(&burst[at], length, &plane[at]);
          }
        }
        LevelParameters parameters = LimiterOnly(ceiling_dbtp);
        parameters.strength = strength;
        parameters.limiter_release_ms = strength == 0 ? 5 : 80;
        const double over_db = TruePeakDb(LevelInstance(parameters).Process(in)) - ceiling_dbtp;
        EXPECT_LE(over_db, 0.1) << "seed " << kSeed << ", ceiling " << ceiling_dbtp << ", burst "
                                << freq_hz << " Hz, strength " << strength;
        EXPECT_GE(over_db, -1.5) << "limited too far: " << freq_hz;
      }
    }
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
