// The music upmix through its entry points, on mixes whose truth is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "tests/upmix-lib/mixes.h"
#include "tests/upmix-lib/music_instance.h"
#include "upmix-lib/music_upmix.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kFrames = 4 * 48000;

Signal Downmix(const Planes& planes, int ear, float centre_gain, float surround_gain) {
  const auto side = static_cast<size_t>(ear);
  Signal sum = planes[kFL + side];
  AddTo(sum, planes[kFC], std::sqrt(0.5f) / centre_gain);
  AddTo(sum, planes[kSL + side], 1.0f / surround_gain);
  AddTo(sum, planes[kBL + side], 1.0f / surround_gain);
  return sum;
}

// Power of what is left of `signal` when `reference`, 96 frames late, is taken away.
double ErrorPower(const Signal& signal, const Signal& reference) {
  double sum = 0.0;
  for (size_t n = 96; n < signal.size(); ++n) {
    sum += std::pow(static_cast<double>(signal[n]) - reference[n - 96], 2.0);
  }
  return sum / static_cast<double>(signal.size() - 96);
}

TEST(MusicUpmix, PlanesAddUpToTheInput) {
  const PannedMix mix = MakePannedMix(Syllables(1, PinkNoise(2, kFrames)), 20.0f, -6.0f, 3);
  MusicParameters tuned = MusicDefaults();
  tuned.centre_level_db = 3.0f;
  tuned.surround_level_db = -6.0f;
  tuned.wide_amount = 0.3f;
  tuned.ambience_amount = 0.7f;
  tuned.decorrelation = 0.5f;
  SealMusic(tuned);
  const float centre_gain = std::pow(10.0f, 3.0f / 20.0f), surround_gain = std::pow(10.0f, -0.3f);

  const Planes by_default = Music().Upmix(mix.mix);
  const Planes by_tuning = Music(tuned).Upmix(mix.mix);
  for (int ear = 0; ear < 2; ++ear) {
    const Signal& in = ear == 0 ? mix.mix.left : mix.mix.right;
    EXPECT_LT(Db(ErrorPower(Downmix(by_default, ear, 1, 1), in) / Power(in, 0)), -120.0);
    EXPECT_LT(
        Db(ErrorPower(Downmix(by_tuning, ear, centre_gain, surround_gain), in) / Power(in, 0)),
        -120.0);
  }
}

TEST(MusicUpmix, EveryPlaneIsNinetySixFramesLate) {
  MusicParameters plain = MusicDefaults();
  plain.decorrelation = 0.0f;
  SealMusic(plain);
  const Signal silence(4096);
  for (int at : {1000, 1031, 1063}) {
    const Signal impulse = BandLimitedImpulse(4096, at);
    Signal inverse = silence;
    AddTo(inverse, impulse, -1.0f);
    EXPECT_EQ(LatencyFrames(impulse, Music(plain).Upmix({impulse, impulse})[kFC]), 96);
    EXPECT_EQ(LatencyFrames(impulse, Music(plain).Upmix({impulse, silence})[kFL]), 96);
    EXPECT_EQ(LatencyFrames(impulse, Music(plain).Upmix({silence, impulse})[kFR]), 96);
    const Planes opposite = Music(plain).Upmix({impulse, inverse});
    for (int plane : {kSL, kSR, kBL, kBR}) {
      EXPECT_EQ(LatencyFrames(impulse, opposite[static_cast<size_t>(plane)]), 96) << plane;
    }
  }
}

TEST(MusicUpmix, CentredSourceIsLoudestInTheCentre) {
  for (float ambience_db : {-20.0f, -6.0f}) {
    const PannedMix mix = MakePannedMix(Syllables(4, PinkNoise(5, kFrames)), 0, ambience_db, 6);
    const Planes planes = Music().Upmix(mix.mix);
    const double centre = PowerCausedBy(mix.source, planes[kFC], 96);
    EXPECT_GT(Db(centre), -1.0);
    for (size_t plane = 0; plane < kPlanes; ++plane) {
      if (plane != kFC) {
        EXPECT_LT(Db(PowerCausedBy(mix.source, planes[plane], 96) / centre), -25.0)
            << "plane " << plane << ", ambience " << ambience_db << " dB";
      }
    }
  }
}

TEST(MusicUpmix, SurroundPlanesCarryAmbienceAndLittleDirectSound) {
  for (float angle_deg : {0.0f, 15.0f, -30.0f, 45.0f}) {
    const PannedMix mix = MakePannedMix(PinkNoise(7, kFrames), angle_deg, -6.0f, 8);
    const Planes planes = Music().Upmix(mix.mix);
    double all = 0.0;
    for (size_t plane : {kSL, kSR, kBL, kBR}) {
      const double ambience = PowerCausedBy(mix.left_ambience, planes[plane], 96) +
                              PowerCausedBy(mix.right_ambience, planes[plane], 96);
      const double direct = PowerCausedBy(mix.source, planes[plane], 96);
      EXPECT_GT(Db(ambience / direct), 18.0) << "plane " << plane << ", " << angle_deg << " deg";
      all += ambience;
    }
    // Of all ambience there is; what remains in front has the source's direction.
    EXPECT_GT(all / Power(mix.left_ambience, 0) / 2.0, 0.38) << angle_deg << " deg";
  }
}

TEST(MusicUpmix, MereAmbienceGoesMostlyToTheSurroundPlanes) {
  const Stereo ambience = {PinkNoise(21, kFrames), PinkNoise(22, kFrames)};
  const Planes planes = Music().Upmix(ambience);
  double front = 0.0, surround = 0.0;
  for (size_t plane : {kFL, kFR, kFC}) {
    front += Power(planes[plane], 48000);
  }
  for (size_t plane : {kSL, kSR, kBL, kBR}) {
    surround += Power(planes[plane], 48000);
  }
  EXPECT_GT(Db(surround / front), 6.0);
}

// The direction that the front planes give a source, from the velocity vector (M. A.
// Gerzon, "General metatheory of auditory localisation", AES convention 92, 1992).
double FrontDirectionDeg(const Planes& planes, const Signal& source, float low_hz, float high_hz) {
  const double left = std::sqrt(PowerCausedBy(source, planes[kFL], 96, low_hz, high_hz));
  const double right = std::sqrt(PowerCausedBy(source, planes[kFR], 96, low_hz, high_hz));
  const double centre = std::sqrt(PowerCausedBy(source, planes[kFC], 96, low_hz, high_hz));
  const double x = std::cos(std::numbers::pi / 6) * (left + right) + centre;
  return std::atan2(0.5 * (left - right), x) * 180.0 / std::numbers::pi;
}

TEST(MusicUpmix, SourcesInDifferentBandsKeepTheirDirections) {
  const Signal low = PinkNoise(9, kFrames, 200.0f, 1200.0f);
  const Signal high = PinkNoise(10, kFrames, 2000.0f, 9000.0f);
  const PannedMix low_alone = MakePannedMix(low, 25.0f, -30.0f, 11);
  const PannedMix high_alone = MakePannedMix(high, -35.0f, -100.0f, 13);
  Stereo both = low_alone.mix;
  AddTo(both.left, high_alone.mix.left, 1.0f);
  AddTo(both.right, high_alone.mix.right, 1.0f);

  const Planes planes = Music().Upmix(both);
  const double low_deg = FrontDirectionDeg(planes, low, 200.0f, 1200.0f);
  const double high_deg = FrontDirectionDeg(planes, high, 2000.0f, 9000.0f);
  const double low_alone_deg =
      FrontDirectionDeg(Music().Upmix(low_alone.mix), low, 200.0f, 1200.0f);
  const double high_alone_deg =
      FrontDirectionDeg(Music().Upmix(high_alone.mix), high, 2000.0f, 9000.0f);
  EXPECT_NEAR(low_deg, low_alone_deg, 1.0);
  EXPECT_NEAR(high_deg, high_alone_deg, 1.0);
  // A pair of loudspeakers at +-30 degrees would place them at 15 and -22.
  EXPECT_NEAR(low_deg, 15.0, 3.0);
  EXPECT_NEAR(high_deg, -22.0, 3.0);
}

// Two steady sources in the same bands: the gains must not follow their beating. Each
// band's gains stay within a narrow range, and change slowly.
TEST(MusicUpmix, SharedBandsDoNotWarble) {
  const Signal one = PinkNoise(15, kFrames), two = PinkNoise(16, kFrames);
  Stereo in = MakePannedMix(one, 30.0f, -20.0f, 17).mix;
  const Stereo other = MakePannedMix(two, -20.0f, -100.0f, 19).mix;
  AddTo(in.left, other.left, 1.0f);
  AddTo(in.right, other.right, 1.0f);

  PlaneUpmix upmix(MusicTuning(MusicDefaults()));
  double sum[kBands] = {}, squares[kBands] = {}, largest_step = 0.0;
  BandValues before = {};
  int hops = 0;
  for (size_t at = 0; at < in.left.size(); at += kHopFrames) {
    const float* from[2] = {&in.left[at], &in.right[at]};
    float planes[kPlanes][kHopFrames];
    float* to[kPlanes];
    for (size_t p = 0; p < kPlanes; ++p) {
      to[p] = planes[p];
    }
    upmix.Process(from, to);
    if (at > 48000) {
      ++hops;
      for (int b = 2; b < kBands; ++b) {
        const double gain = upmix.gains().centre_left[b] + upmix.gains().centre_right[b];
        largest_step = std::max(largest_step, std::fabs(gain - before[b]));
        sum[b] += gain;
        squares[b] += gain * gain;
      }
    }
    for (int b = 0; b < kBands; ++b) {
      before[b] = upmix.gains().centre_left[b] + upmix.gains().centre_right[b];
    }
  }
  double deviation = 0.0;
  for (int b = 2; b < kBands; ++b) {
    deviation += std::sqrt(squares[b] / hops - std::pow(sum[b] / hops, 2.0)) / (kBands - 2);
  }
  EXPECT_LT(deviation, 0.07);
  EXPECT_LT(largest_step, 0.06);
}

}  // namespace
}  // namespace kelda::upmix_lib
