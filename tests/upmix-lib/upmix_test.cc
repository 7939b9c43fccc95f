// Both upmixes through their entry points, on mixes whose truth is known.
#include <gtest/gtest.h>

#include <numbers>

#include "tests/laboratory/components.h"
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
  tuned.decorrelation = 0.5f;
  for (const MusicParameters& parameters : {MusicDefaults(), tuned}) {
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
      EXPECT_GT(Db(centre), -1.0);
      for (const std::size_t plane : {kFL, kFR, kSL, kSR, kBL, kBR}) {
        EXPECT_LT(Db(PowerCausedBy(mix.source, planes[plane], 96) / centre), -25.0) << plane;
      }
    }
    double all = 0.0;
    for (const std::size_t plane : kSurround) {
      const double ambience = PowerCausedBy(mix.ambience[0], planes[plane], 96) +
                              PowerCausedBy(mix.ambience[1], planes[plane], 96);
      const double direct = PowerCausedBy(mix.source, planes[plane], 96);
      EXPECT_GT(Db(ambience / direct), 18.0) << "plane " << plane << ", " << angle_deg << " deg";
      all += ambience;
    }
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
  EXPECT_GT(Db(surround / front), 6.0);
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

// Two steady sources in the same bands: the gains must not follow their beating. Each
// band's gains stay within a narrow range, and change slowly.
TEST(MusicUpmix, SharedBandsDoNotWarble) {
  Planes in = MakePannedMix(PinkNoise(15, kFrames), 30.0f, -20.0f, 17).mix;
  const Planes other = MakePannedMix(PinkNoise(16, kFrames), -20.0f, -100.0f, 19).mix;
  for (const std::size_t ear : {0u, 1u}) {
    AddTo(in[ear], other[ear]);
  }
  PlaneUpmix upmix(MusicTuning(MusicDefaults()));
  double sum[kBands] = {}, squares[kBands] = {}, largest_step = 0.0, hops = 0.0;
  BandValues before = {};
  float planes[kPlanes][kHopFrames];
  float* to[kPlanes];
  for (std::size_t p = 0; p < kPlanes; ++p) {
    to[p] = planes[p];
  }
  for (std::size_t at = 0; at < kFrames; at += kHopFrames) {
    const float* from[2] = {&in[0][at], &in[1][at]};
    upmix.Process(from, to);
    hops += at > 48000 ? 1.0 : 0.0;
    for (int b = 2; b < kBands; ++b) {
      const double gain = upmix.gains().centre_left[b] + upmix.gains().centre_right[b];
      if (at > 48000) {
        largest_step = std::max(largest_step, std::fabs(gain - before[b]));
        sum[b] += gain;
        squares[b] += gain * gain;
      }
      before[b] = static_cast<float>(gain);
    }
  }
  double deviation = 0.0;
  for (int b = 2; b < kBands; ++b) {
    deviation += std::sqrt(squares[b] / hops - std::pow(sum[b] / hops, 2.0)) / (kBands - 2);
  }
  EXPECT_LT(deviation, 0.07);
  EXPECT_LT(largest_step, 0.06);
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
  EXPECT_GT(Db(centre), -1.0);
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
  HrirSet delayed = SilentHrirs(32);
  for (const std::size_t ear : {0u, 1u}) {
    delayed.responses[(kFC * kEars + ear) * 32 + 20] = 0.5f;
  }
  const Signal out = CinemaInstance(parameters, delayed).Process({in, in})[0];
  for (const float hz : {30.0f, 60.0f, 80.0f, 100.0f, 125.0f, 160.0f, 250.0f, 1000.0f, 4000.0f}) {
    const double input = PowerCausedBy(in, in, 0, hz * 0.9f, hz * 1.1f);
    const double output = PowerCausedBy(in, out, 96 + 20, hz * 0.9f, hz * 1.1f);
    // The centre plane carries sqrt(2) of a mono signal, the HRIRs 0.5.
    EXPECT_NEAR(Db(output / input), Db(0.5), 1.0) << hz << " Hz";
  }
}

TEST(CinemaBass, CrossoverIsHalfWayAtItsFrequencyAndSteepBeyond) {
  const auto gain_db = [](double hz, bool bass) {
    BassSplitter splitter(100.0f);
    const Signal left = Sine(hz, 2.0, 96000), right(left.size()), mean = Sine(hz, 1.0, 96000);
    Signal high_left(left.size()), high_right(left.size()), low(left.size());
    splitter.Process(left.data(), right.data(), static_cast<int>(left.size()), high_left.data(),
                     high_right.data(), low.data());
    EXPECT_EQ(high_right, right);
    return Db(bass ? Power(low, 48000) / Power(mean, 48000)
                   : Power(high_left, 48000) / Power(left, 48000));
  };
  EXPECT_NEAR(gain_db(100.0, true), -6.02, 0.05);
  EXPECT_NEAR(gain_db(100.0, false), -6.02, 0.05);
  EXPECT_NEAR(gain_db(20.0, true), 0.0, 0.05);
  EXPECT_LT(gain_db(20.0, false), -54.0);
  EXPECT_LT(gain_db(400.0, true), -47.0);
  EXPECT_NEAR(gain_db(5000.0, false), 0.0, 0.01);
}

}  // namespace
}  // namespace kelda::upmix_lib
