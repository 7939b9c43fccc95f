// Both upmixes through their entry points, on mixes whose truth is known.
#include <gtest/gtest.h>

#include <array>
#include <numbers>
#include <numeric>

#include "tests/laboratory/components.h"
#include "upmix-lib/transforms/fft.h"
#include "upmix-lib/upmix/cinema_bass.h"
#include "upmix-lib/upmix/music_upmix.h"

namespace kelda::upmix_lib {
namespace {

constexpr std::size_t kFrames = 188 * kBlock;  // 4 s
constexpr std::size_t kSurround[] = {kSL, kSR, kBL, kBR};

Planes Upmix(const Planes& in) { return MusicInstance().Process(in); }

TEST(MusicUpmix, PlanesAddUpToTheInput) {
  const Planes in = MakePannedMix(Syllables(1, PinkNoise(2, kFrames)), 20.0f, -6.0f, 3).mix;
  MusicParameters tuned = MusicDefaults();
  tuned.centre_level_db = 3.0f;
  tuned.surround_level_db = -6.0f;
  tuned.wide_amount = 0.3f;
  tuned.ambience_amount = 0.7f;
  MusicParameters plain = MusicDefaults();
  plain.decorrelation = tuned.decorrelation = 0.0f;  // else ambience adds up in power only
  for (const MusicParameters& parameters : {plain, tuned}) {
    const Planes planes = MusicInstance(parameters).Process(in), late = Delayed(in, 96);
    const float centre = std::pow(10.0f, -parameters.centre_level_db / 20.0f);
    const float surround = std::pow(10.0f, -parameters.surround_level_db / 20.0f);
    for (const std::size_t ear : {0u, 1u}) {
      Signal sum = planes[kFL + ear];
      AddTo(sum, planes[kFC], std::sqrt(0.5f) * centre);
      AddTo(sum, planes[kSL + ear], surround);
      AddTo(sum, planes[kBL + ear], surround);
      EXPECT_LT(ErrorDb(sum, late[ear]), -120.0);
    }
  }
}

TEST(MusicUpmix, PartsDirectSoundFromAmbience) {
  for (const float angle_deg : {0.0f, 15.0f, -30.0f, 45.0f}) {
    // In the centre with pauses, which the gains have to follow.
    const Signal source =
        angle_deg == 0.0f ? Syllables(4, PinkNoise(5, kFrames)) : PinkNoise(7, kFrames);
    const PannedMix mix = MakePannedMix(source, angle_deg, -6.0f, 8);
    const Planes planes = Upmix(mix.mix);
    if (angle_deg == 0.0f) {
      const double centre = PowerCausedBy(mix.source, planes[kFC], 96);
      EXPECT_GT(Db(centre), -2.7);
      for (const std::size_t plane : {kFL, kFR, kSL, kSR, kBL, kBR}) {
        EXPECT_LT(Db(PowerCausedBy(mix.source, planes[plane], 96) / centre), -14.5) << plane;
      }
    }
    double all = 0.0, direct = 0.0;
    for (const std::size_t plane : kSurround) {
      all += PowerCausedBy(mix.ambience[0], planes[plane], 96) +
             PowerCausedBy(mix.ambience[1], planes[plane], 96);
      direct += PowerCausedBy(mix.source, planes[plane], 96);
    }
    EXPECT_GT(Db(all / direct), 12.0) << angle_deg << " deg";
    // Of all ambience there is; what remains in front has the source's direction.
    EXPECT_GT(all / Power(mix.ambience[0]) / 2.0, 0.38) << angle_deg << " deg";
  }
  double front = 0.0, surround = 0.0;
  const Planes mere_ambience = Upmix({PinkNoise(21, kFrames), PinkNoise(22, kFrames)});
  for (const std::size_t plane : {kFL, kFR, kFC}) {
    front += Power(mere_ambience[plane], 48000);
  }
  for (const std::size_t plane : kSurround) {
    surround += Power(mere_ambience[plane], 48000);
  }
  EXPECT_GT(Db(surround / front), 7.0);
  // What is out of phase lies nowhere between left and right.
  Planes opposed = MakePannedMix(PinkNoise(23, kFrames), 20.0f, -100.0f, 24).mix;
  for (float& sample : opposed[1]) {
    sample = -sample;
  }
  EXPECT_LT(Db(Power(Upmix(opposed)[kFC], 48000)), -60.0);
}

// The direction that the front planes give a source, from the velocity vector (M. A.
// Gerzon, "General metatheory of auditory localisation", AES convention 92, 1992).
double FrontDirectionDeg(const Planes& planes, const Signal& source, float low_hz, float high_hz) {
  const auto amplitude = [&](std::size_t plane) {
    return std::sqrt(PowerCausedBy(source, planes[plane], 96, low_hz, high_hz));
  };
  const double left = amplitude(kFL), right = amplitude(kFR);
  const double x = std::cos(std::numbers::pi / 6) * (left + right) + amplitude(kFC);
  return std::atan2(0.5 * (left - right), x) * 180.0 / std::numbers::pi;
}

TEST(MusicUpmix, SourcesInDifferentBandsKeepTheirDirections) {
  const Signal low = PinkNoise(9, kFrames, 200.0f, 1200.0f);
  const Signal high = PinkNoise(10, kFrames, 2000.0f, 9000.0f);
  const Planes low_alone = MakePannedMix(low, 25.0f, -30.0f, 11).mix;
  const Planes high_alone = MakePannedMix(high, -35.0f, -100.0f, 13).mix;
  Planes both = low_alone;
  for (const std::size_t ear : {0u, 1u}) {
    AddTo(both[ear], high_alone[ear]);
  }
  const Planes planes = Upmix(both);
  const double low_deg = FrontDirectionDeg(planes, low, 200.0f, 1200.0f);
  const double high_deg = FrontDirectionDeg(planes, high, 2000.0f, 9000.0f);
  EXPECT_NEAR(low_deg, FrontDirectionDeg(Upmix(low_alone), low, 200.0f, 1200.0f), 1.0);
  EXPECT_NEAR(high_deg, FrontDirectionDeg(Upmix(high_alone), high, 2000.0f, 9000.0f), 1.0);
  // A pair of loudspeakers at +-30 degrees would place them at 15 and -22.
  EXPECT_NEAR(low_deg, 15.0, 3.0);
  EXPECT_NEAR(high_deg, -22.0, 3.0);
}

// ---- Spectra of long steady signals.

constexpr int kSpectrumFrames = 8192;
double SpectrumHz(int bin) { return bin * 48000.0 / kSpectrumFrames; }

// The power of each bin, mean over windows (Blackman-Harris, 92 dB) behind the first second; a
// sine of amplitude 1 is 1 at its top.
std::vector<double> SpectrumOf(const Signal& signal) {
  const RealFft& fft = SharedRealFft<kSpectrumFrames>();
  Signal window(kSpectrumFrames), re(kSpectrumFrames / 2 + 1), im(re);
  Signal scratch(static_cast<std::size_t>(fft.scratch_floats()));
  std::vector<double> powers(re.size());
  double windows = 0.0;
  for (std::size_t at = 48000; at + window.size() <= signal.size(); at += window.size() / 2) {
    for (std::size_t n = 0; n < window.size(); ++n) {
      const double x = 2.0 * std::numbers::pi * static_cast<double>(n) / kSpectrumFrames;
      const double shape =
          0.35875 - 0.48829 * std::cos(x) + 0.14128 * std::cos(2 * x) - 0.01168 * std::cos(3 * x);
      window[n] = static_cast<float>(shape / 0.35875 / kSpectrumFrames * 2.0) * signal[at + n];
    }
    fft.Forward(window.data(), re.data(), im.data(), scratch.data());
    for (std::size_t k = 0; k < re.size(); ++k) {
      powers[k] += static_cast<double>(re[k]) * static_cast<double>(re[k]) +
                   static_cast<double>(im[k]) * static_cast<double>(im[k]);
    }
    windows += 1.0;
  }
  for (double& power : powers) {
    power /= windows;
  }
  return powers;
}

// In decibels, 125 Hz to 10 kHz.
std::vector<double> ThirdOctavesDb(const Signal& signal) {
  const std::vector<double> powers = SpectrumOf(signal);
  std::vector<double> thirds;
  for (int i = -9; i <= 10; ++i) {
    const double centre = 1000.0 * std::exp2(i / 3.0);
    double sum = 0.0;
    for (int k = 0; k < kSpectrumFrames / 2; ++k) {
      const double octaves = std::log2(std::max(SpectrumHz(k), 1.0) / centre);
      if (std::fabs(octaves) <= 1.0 / 6.0) {
        sum += powers[static_cast<std::size_t>(k)];
      }
    }
    thirds.push_back(Db(sum));
  }
  return thirds;
}

// Peak to peak of `a` over `b`.
double RippleDb(const std::vector<double>& a, const std::vector<double>& b) {
  double low = 1e9, high = -1e9;
  for (std::size_t i = 0; i < a.size(); ++i) {
    low = std::min(low, a[i] - b[i]);
    high = std::max(high, a[i] - b[i]);
  }
  return high - low;
}

// Else a pause would cost as much as music for as long as powers take to fade out.
TEST(MusicUpmix, RestsSoonAfterTheSound) {
  PlaneUpmix upmix(MusicTuning(MusicDefaults()));
  const Planes in = MakePannedMix(PinkNoise(31, kFrames), 20.0f, 0.0f, 32).mix;
  const Signal silence(kHopFrames);
  Planes out(kPlanes, Signal(kHopFrames));
  float* planes[kPlanes];
  for (std::size_t p = 0; p < kPlanes; ++p) {
    planes[p] = out[p].data();
  }
  for (std::size_t at = 0; at < kFrames; at += kHopFrames) {
    const float* const sound[] = {in[0].data() + at, in[1].data() + at};
    upmix.Process(sound, planes);
  }
  const float* const nothing[] = {silence.data(), silence.data()};
  for (int hop = 0; hop < 6 * kSampleRateHz / kHopFrames; ++hop) {
    upmix.Process(nothing, planes);
  }
  EXPECT_TRUE(upmix.at_rest());
}

// Gains that follow the beats of steady tones would put lines beside them, 30 Hz away and more: a
// line is 25 Hz wide here. Each row: tones, and where each of them is panned.
TEST(MusicUpmix, SteadyTonesGetNoOtherLines) {
  struct Tone {
    double hz;
    float left, right;
  };
  std::vector<Tone> chord;
  for (int partial = 1; partial <= 6; ++partial) {
    chord.push_back({261.6 * partial, 1.0f, 0.0f});
    chord.push_back({329.6 * partial, 0.7f, 0.7f});
    chord.push_back({392.0 * partial, 0.0f, 1.0f});
  }
  const struct {
    std::vector<Tone> tones;
    double limit_db;
  } kRows[] = {{{{1000, 0.7f, 0.7f}, {1400, 1.0f, 0.0f}}, -70.0},
               {{{5000, 0.7f, 0.7f}, {5900, 1.0f, 0.0f}}, -75.0},
               {{{300, 0.7f, 0.7f}, {420, 1.0f, 0.0f}}, -65.0},
               {chord, -55.0}};
  for (const auto& row : kRows) {
    Planes in(2, Signal(kFrames));
    for (const Tone& tone : row.tones) {
      const Signal sine = Sine(tone.hz, 0.1, kFrames, tone.hz);
      AddTo(in[0], sine, tone.left);
      AddTo(in[1], sine, tone.right);
    }
    for (const Signal& plane : Upmix(in)) {
      const std::vector<double> powers = SpectrumOf(plane);
      double worst = 0.0;
      for (int k = 0; k < kSpectrumFrames / 2; ++k) {
        bool beside = true;
        for (const Tone& tone : row.tones) {
          beside &= std::fabs(SpectrumHz(k) - tone.hz) > 55.0;
        }
        if (beside) {
          worst = std::max(worst, powers[static_cast<std::size_t>(k)]);
        }
      }
      EXPECT_LT(Db(worst / 0.01), row.limit_db) << row.tones.front().hz;
    }
  }
}

TEST(MusicUpmix, SurroundPlanesAreUnlikeEachOtherAndHaveNoColour) {
  const Planes wide = {PinkNoise(31, 2 * kFrames, 20.0f, 20000.0f),
                       PinkNoise(32, 2 * kFrames, 20.0f, 20000.0f)};
  const Planes planes = Upmix(wide);
  const auto input = ThirdOctavesDb(wide[0]), other_input = ThirdOctavesDb(wide[1]);
  for (const std::size_t plane : {kSL, kBL}) {
    const auto left = ThirdOctavesDb(planes[plane]), right = ThirdOctavesDb(planes[plane + 1]);
    EXPECT_LT(RippleDb(left, input), 3.0) << plane;
    for (std::size_t i = 0; i < left.size(); ++i) {
      EXPECT_NEAR(left[i] - input[i], right[i] - other_input[i], 1.0) << plane << ", " << i;
    }
  }
  Planes antiphase = {wide[0], wide[0]};
  for (float& sample : antiphase[1]) {
    sample = -sample;
  }
  EXPECT_LT(RippleDb(ThirdOctavesDb(Upmix(antiphase)[kBL]), input), 5.0);

  // Beside a centre of the same power, which leaves the same ambience in both channels but for
  // the sign.
  Planes in = wide;
  const Signal centre = PinkNoise(33, 2 * kFrames);
  for (const std::size_t ear : {0u, 1u}) {
    AddTo(in[ear], centre);
  }
  const Planes beside = Upmix(in);
  for (const auto& [one, other] : {std::pair{kSL, kSR}, {kBL, kBR}, {kSL, kBL}}) {
    double product = 0.0;
    for (std::size_t n = 48000; n < in[0].size(); ++n) {
      product += static_cast<double>(beside[one][n]) * static_cast<double>(beside[other][n]);
    }
    product /= static_cast<double>(in[0].size() - 48000);
    EXPECT_LT(
        std::fabs(product / std::sqrt(Power(beside[one], 48000) * Power(beside[other], 48000))),
        0.3);
  }
}

// One instrument, doubled by a delay: neither channel is like the other at the same time, and yet
// it is no reverberation.
TEST(MusicUpmix, WhatADelayDoublesStaysInFront) {
  const Signal source = PinkNoise(41, 3 * kFrames, 100.0f, 12000.0f);
  for (const std::size_t delay : {100u, 528u, 900u}) {
    Planes in = {source, Delayed({source}, delay)[0]};
    if (delay == 900) {
      std::swap(in[0], in[1]);
    }
    const Planes planes = Upmix(in);
    double front = 0.0, surround = 0.0;
    for (const std::size_t plane : {kFL, kFR, kFC}) {
      front += Power(planes[plane], 96000);
    }
    for (const std::size_t plane : kSurround) {
      surround += Power(planes[plane], 96000);
    }
    EXPECT_GT(front / (front + surround), 0.75) << delay;
  }
}

// Two instruments that share their notes, one at either side, are like reverberation bin by bin.
// What else there is tells: beside a centre they stay in front, in a diffuse field they surround.
TEST(MusicUpmix, InADryMixInstrumentsAtTheSidesStayInFront) {
  const auto behind = [](const Planes& others) {
    Planes in = others;
    AddTo(in[0], PinkNoise(51, kFrames, 500.0f, 2000.0f));
    AddTo(in[1], PinkNoise(52, kFrames, 500.0f, 2000.0f));
    const Planes planes = Upmix(in);
    double all = 0.0, surround = 0.0;
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      const std::vector<double> powers = SpectrumOf(planes[plane]);
      for (std::size_t k = 0; k < powers.size(); ++k) {
        const double hz = SpectrumHz(static_cast<int>(k));
        const double power = hz > 600.0 && hz < 1800.0 ? powers[k] : 0.0;
        all += power;
        surround += plane >= kSL ? power : 0.0;
      }
    }
    return surround / all;
  };
  const Signal centre = PinkNoise(53, kFrames, 2500.0f, 20000.0f);
  const Signal other = PinkNoise(54, kFrames, 2500.0f, 20000.0f);
  const double dry = behind({centre, centre}), diffuse = behind({centre, other});
  EXPECT_GT(diffuse, 0.6);
  EXPECT_LT(dry, 0.5 * diffuse);
}

// Late power that the sound no longer has would let all that falls count as ambience.
TEST(MusicUpmix, AfterAFallTheLouderSoundIsSoonForgotten) {
  const PannedMix quiet = MakePannedMix(PinkNoise(61, kFrames), 0.0f, 0.0f, 62);
  constexpr std::size_t kFall = kFrames / 2, kSettled = kFall + kFrames / 8, kEnd = kFrames * 3 / 4;
  Planes fallen = quiet.mix;
  for (Signal& channel : fallen) {
    for (std::size_t n = 0; n < kFall; ++n) {
      channel[n] *= 11.0f;
    }
  }
  const Planes planes = Upmix(fallen), always = Upmix(quiet.mix);
  for (const std::size_t plane : {kFC, kSL, kSR, kBL, kBR}) {
    double difference = 0.0, power = 0.0;
    for (std::size_t n = kSettled; n < kEnd; ++n) {
      const double now = planes[plane][n], usual = always[plane][n];
      difference += (now - usual) * (now - usual), power += usual * usual;
    }
    EXPECT_LT(Db(difference / power), -25.0) << "plane " << plane;
  }
}

// ---- Cinema. HRIRs that let single planes through make the planes audible one by one.

// Without room and level changes, so that planes can be compared.
CinemaParameters Dry() {
  CinemaParameters parameters = CinemaDefaults();
  parameters.room_level_db = parameters.room_early_level_db = kRoomOffDb;
  parameters.dialogue_level_db = parameters.surround_level_db = 0.0f;
  return parameters;
}

Signal PlaneAlone(std::size_t plane, const Planes& in) {
  return CinemaInstance(Dry(), Probe({plane})).Process(in)[0];
}

TEST(Cinema, DialogueIsLoudestInTheCentreAndAmbienceSurroundsIt) {
  const Signal speech = Syllables(1, PinkNoise(2, kFrames, 200.0f, 6000.0f));
  const PannedMix mix = MakePannedMix(speech, 0.0f, -6.0f, 3);
  const double centre = PowerCausedBy(speech, PlaneAlone(kFC, mix.mix), 96);
  EXPECT_GT(Db(centre), -2.0);
  for (const std::size_t plane : {kFL, kFR, kSL, kSR, kBL, kBR}) {
    const Signal out = PlaneAlone(plane, mix.mix);
    const double direct = PowerCausedBy(speech, out, 96);
    EXPECT_LT(Db(direct / centre), -20.0) << plane;
    if (plane < kSL) {
      continue;
    }
    const double ambience = PowerCausedBy(mix.ambience[0], out, 96, 200.0f) +
                            PowerCausedBy(mix.ambience[1], out, 96, 200.0f);
    EXPECT_GT(Db(ambience / direct), 12.0) << plane;
    EXPECT_GT(Db(ambience / Power(mix.ambience[0])), -7.0) << plane;
  }
}

// Nothing is lost or doubled where the bass parts from the rest: heard through the centre
// plane, a centred sound has a flat response from 30 Hz up.
TEST(Cinema, CrossoverIsFlatForCentredSound) {
  CinemaParameters parameters = Dry();
  parameters.dialogue_amount = 1.0f;
  const Signal in = PinkNoise(9, kFrames, 20.0f, 8000.0f);
  constexpr int kDelay = 120;  // a quarter of a period at 100 Hz; much less would not show
  HrirSet delayed = SilentHrirs(2 * kDelay);
  for (const std::size_t ear : {0u, 1u}) {
    delayed.responses[(kFC * kEars + ear) * 2 * kDelay + kDelay] = 0.5f;
  }
  const Signal out = CinemaInstance(parameters, delayed).Process({in, in})[0];
  for (const float hz : {30.0f, 60.0f, 80.0f, 100.0f, 125.0f, 160.0f, 250.0f, 1000.0f, 4000.0f}) {
    const double input = PowerCausedBy(in, in, 0, hz * 0.9f, hz * 1.1f);
    const double output = PowerCausedBy(in, out, 96 + kDelay, hz * 0.9f, hz * 1.1f);
    // The centre plane carries sqrt(2) of a mono signal, the HRIRs 0.5.
    EXPECT_NEAR(Db(output / input), Db(0.5), 1.0) << hz << " Hz";
  }
}

TEST(CinemaBass, CrossoverIsHalfWayAtItsFrequencyAndSteepBeyond) {
  const auto gain_db = [](double hz, bool bass) {
    BassSplitter splitter(100.0f);
    const Signal left = Sine(hz, 1.0, 96000), right(left.size());
    Signal high[2] = {left, left}, low[2] = {left, left};
    splitter.Process(left.data(), right.data(), static_cast<int>(left.size()),
                     {high[0].data(), high[1].data()}, {low[0].data(), low[1].data()});
    EXPECT_EQ(high[1], right);
    EXPECT_EQ(low[1], right);
    return Db(Power(bass ? low[0] : high[0], 48000) / Power(left, 48000));
  };
  EXPECT_NEAR(gain_db(100.0, true), -6.02, 0.05);
  EXPECT_NEAR(gain_db(100.0, false), -6.02, 0.05);
  EXPECT_NEAR(gain_db(20.0, true), 0.0, 0.05);
  EXPECT_LT(gain_db(20.0, false), -54.0);
  EXPECT_LT(gain_db(400.0, true), -47.0);
  EXPECT_NEAR(gain_db(5000.0, false), 0.0, 0.01);
}

// The mean of both channels would have half the power of what they do not share.
TEST(Cinema, WideBassIsAsLoudAsCentredBass) {
  const Planes wide = {PinkNoise(41, kFrames, 30.0f, 60.0f), PinkNoise(42, kFrames, 30.0f, 60.0f)};
  const auto gain_db = [](const Planes& in) {
    const Planes out = CinemaInstance(Dry(), Probe({kFC})).Process(in);
    return Db((Power(out[0], 48000) + Power(out[1], 48000)) /
              (Power(in[0], 48000) + Power(in[1], 48000)));
  };
  EXPECT_NEAR(gain_db(wide), gain_db({wide[0], wide[0]}), 0.5);
}

TEST(Cinema, WidthSpreadsAmbienceAndLeavesSourcesInTheirPlace) {
  CinemaParameters narrow = Dry();
  narrow.width = 0.0f;
  const auto powers = [](const CinemaParameters& parameters, const Planes& in) {
    std::array<double, kPlanes> by_plane{};
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      by_plane[plane] = Power(CinemaInstance(parameters, Probe({plane})).Process(in)[0], 48000);
    }
    return by_plane;
  };
  const Signal one = PinkNoise(43, kFrames, 300.0f), two = PinkNoise(44, kFrames, 300.0f);
  const auto left = powers(Dry(), {one, Signal(kFrames)});
  const double all = std::accumulate(left.begin(), left.end(), 0.0);
  EXPECT_LT((left[kSL] + left[kSR]) / all, 0.1);
  EXPECT_NEAR(Db(all / Power(one, 48000)), 0.0, 0.5);
  const auto wide = powers(Dry(), {one, two}), before = powers(narrow, {one, two});
  EXPECT_LT(Db(wide[kFL] / before[kFL]), -2.0);
  EXPECT_GT(wide[kSL], before[kSL]);
}

// ---- Dialogue.

// A voice: pitch that glides about `hz`, harmonics to 4 kHz, words of 0.35 s, gaps of 0.15 s.
Signal Voice(double hz, std::size_t frames) {
  Signal voice(frames);
  double phase = 0.0;
  for (std::size_t n = 0; n < frames; ++n) {
    const double t = static_cast<double>(n) / 48000.0, word = std::fmod(t, 0.5);
    const double f0 = hz * std::exp2(0.35 * std::sin(2.0 * std::numbers::pi * 0.9 * t));
    phase += 2.0 * std::numbers::pi * f0 / 48000.0;
    double sum = 0.0;
    for (int h = 1; h * f0 < 4000.0; ++h) {
      sum += std::sin(h * phase) / h;
    }
    const double shape = word < 0.35 ? std::sin(std::numbers::pi * word / 0.35) : 0.0;
    voice[n] = static_cast<float>(0.2 * shape * sum);
  }
  return voice;
}

// Held notes of the same harmonics, struck as often as the words, dying away in between.
Signal Notes(std::size_t frames) {
  Signal notes(frames);
  for (std::size_t n = 0; n < frames; ++n) {
    const double t = static_cast<double>(n) / 48000.0, note = std::fmod(t, 0.5);
    const double f0 = 110.0 * std::exp2(std::floor(std::fmod(t, 2.0) / 0.5) * 4.0 / 12.0);
    double sum = 0.0;
    for (int h = 1; h * f0 < 4000.0; ++h) {
      sum += std::sin(2.0 * std::numbers::pi * h * f0 * t) / h;
    }
    notes[n] = static_cast<float>(0.2 * std::exp(-note / 0.06) * sum);
  }
  return notes;
}

TEST(Cinema, RestIsHeldBackOnlyWhileSomebodySpeaks) {
  CinemaParameters plain = Dry();
  plain.dialogue_ducking_db = 0.0f;
  constexpr std::size_t kLong = 2 * kFrames;  // 8 s: 5 s with sound in the centre
  const Signal one = PinkNoise(45, kLong, 300.0f), two = PinkNoise(46, kLong, 300.0f);
  // Beside pink noise in left and right of these amplitudes, so much louder in the first two
  // seconds.
  std::array<float, 2> rest = {0.01f, 0.01f};
  float before = 1.0f;
  const auto gain_db = [&](const Signal& centre, std::size_t plane, double from_s, double to_s) {
    Planes in = {one, two};
    for (std::size_t channel = 0; channel < 2; ++channel) {
      for (std::size_t n = 0; n < kLong; ++n) {
        in[channel][n] *= rest[channel] * (n < 2 * 48000 ? before : 1.0f);
        in[channel][n] += n < 5 * 48000 ? centre[n] : 0.0f;
      }
    }
    const Signal with = CinemaInstance(Dry(), Probe({plane})).Process(in)[0];
    const Signal without = CinemaInstance(plain, Probe({plane})).Process(in)[0];
    const auto part = [&](const Signal& signal) {
      return Power(std::span(signal).subspan(static_cast<std::size_t>(from_s * 48000),
                                             static_cast<std::size_t>((to_s - from_s) * 48000)));
    };
    return Db(part(with) / part(without));
  };
  for (const double hz : {110.0, 210.0}) {
    const Signal voice = Voice(hz, kLong);
    EXPECT_NEAR(gain_db(voice, kBL, 2.0, 5.0), -12.0, 1.5) << hz;
    EXPECT_NEAR(gain_db(voice, kFC, 2.0, 5.0), 0.0, 0.3) << hz;  // nothing is lost
    EXPECT_NEAR(gain_db(voice, kBL, 7.0, 7.9), 0.0, 0.2) << hz;
  }
  // What the others lose the voice gets back, twice.
  rest = {0.05f, 0.05f};
  EXPECT_NEAR(gain_db(Voice(110.0, kLong), kFC, 2.0, 5.0), 2.05, 0.4);
  EXPECT_NEAR(gain_db(Voice(110.0, kLong), kFC, 1.1, 1.3), 2.05, 0.6);  // and at once
  // Not for the loudness of a scene before.
  rest = {0.01f, 0.01f};
  before = 30.0f;
  Signal late_voice = Voice(110.0, kLong);
  std::fill_n(late_voice.begin(), 2 * 48000, 0.0f);
  EXPECT_NEAR(gain_db(late_voice, kFC, 2.0, 5.0), 0.0, 0.5);
  before = 1.0f;
  // A source at a side that is louder than the voice stays.
  const Signal voice = Voice(110.0, kLong);
  rest = {0.01f, 2.0f};
  EXPECT_GT(gain_db(voice, kFR, 2.0, 5.0), -1.0);
  EXPECT_LT(gain_db(voice, kFL, 2.0, 5.0), -2.0);
  rest = {0.01f, 0.01f};
  for (const std::size_t plane : {kBL, kFC}) {
    EXPECT_EQ(gain_db(Notes(kLong), plane, 0.0, 7.9), 0.0) << plane;
    EXPECT_EQ(gain_db(Signal(kLong), plane, 0.0, 7.9), 0.0) << plane;
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
