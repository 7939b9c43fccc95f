// The cinema upmix through its entry points. HRIRs that let single planes through make
// the planes audible one by one.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "tests/upmix-lib/cinema_instance.h"
#include "upmix-lib/cinema_bass.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kFrames = 4 * 48000;

Signal PlaneAlone(int plane, const Stereo& in) {
  return CinemaInstance(CinemaDry(), Probe({plane})).Upmix(in).left;
}

TEST(Cinema, IsNinetySixFramesLate) {
  const Signal silence(8192);
  for (int at : {2000, 2033}) {
    const Signal impulse = BandLimitedImpulse(8192, at);
    CinemaInstance centred(CinemaDry()), left(CinemaDry());
    EXPECT_EQ(LatencyFrames(impulse, centred.Upmix({impulse, impulse}).left), 96);
    EXPECT_EQ(LatencyFrames(impulse, left.Upmix({impulse, silence}).right), 96);
  }
}

TEST(Cinema, DialogueIsLoudestInTheCentre) {
  const Signal speech = Syllables(1, PinkNoise(2, kFrames, 200.0f, 6000.0f));
  const PannedMix mix = MakePannedMix(speech, 0.0f, -6.0f, 3);
  const double centre = PowerCausedBy(speech, PlaneAlone(kFC, mix.mix), 96);
  EXPECT_GT(Db(centre), -1.0);
  for (int plane : {kFL, kFR, kSL, kSR, kBL, kBR}) {
    EXPECT_LT(Db(PowerCausedBy(speech, PlaneAlone(plane, mix.mix), 96) / centre), -20.0) << plane;
  }
}

TEST(Cinema, AmbienceSurroundsTheDialogue) {
  const Signal speech = Syllables(5, PinkNoise(6, kFrames, 200.0f, 6000.0f));
  const PannedMix mix = MakePannedMix(speech, 0.0f, -6.0f, 7);
  for (int plane : {kSL, kSR, kBL, kBR}) {
    const Signal out = PlaneAlone(plane, mix.mix);
    const double ambience = PowerCausedBy(mix.left_ambience, out, 96, 200.0f) +
                            PowerCausedBy(mix.right_ambience, out, 96, 200.0f);
    EXPECT_GT(Db(ambience / PowerCausedBy(speech, out, 96)), 12.0) << plane;
    EXPECT_GT(Db(ambience / Power(mix.left_ambience, 0)), -7.0) << plane;
  }
}

// Nothing is lost or doubled where the bass parts from the rest: heard through the centre
// plane, a centred sound has a flat response from 30 Hz up.
TEST(Cinema, CrossoverIsFlatForCentredSound) {
  CinemaParameters dry = CinemaDry();
  dry.dialogue_amount = 1.0f;
  SealCinema(dry);
  const Signal in = PinkNoise(9, kFrames, 20.0f, 8000.0f);
  HrirSet delayed = Probe({});
  for (int ear = 0; ear < kEars; ++ear) {
    const int tap = (kFC * kEars + ear) * delayed.taps + 20;
    delayed.responses[static_cast<size_t>(tap)] = 0.5f;
  }
  const Signal out = CinemaInstance(dry, delayed).Upmix({in, in}).left;
  for (float hz : {30.0f, 60.0f, 80.0f, 100.0f, 125.0f, 160.0f, 250.0f, 1000.0f, 4000.0f}) {
    const double input = PowerCausedBy(in, in, 0, hz * 0.9f, hz * 1.1f);
    const double output = PowerCausedBy(in, out, 96 + 20, hz * 0.9f, hz * 1.1f);
    // The centre plane carries sqrt(2) of a mono signal, the HRIRs 0.5.
    EXPECT_NEAR(Db(output / input), Db(0.5), 1.0) << hz << " Hz";
  }
}

TEST(CinemaBass, CrossoverIsHalfWayAtItsFrequencyAndSteepBeyond) {
  const auto gain_db = [](double hz, bool bass) {
    BassSplitter splitter(100.0f);
    Signal tone(96000), high_left(tone.size()), high_right(tone.size()), low(tone.size());
    for (size_t n = 0; n < tone.size(); ++n) {
      tone[n] = static_cast<float>(
          std::sin(2.0 * std::numbers::pi * hz / 48000.0 * static_cast<double>(n)));
    }
    splitter.Process(tone.data(), tone.data(), static_cast<int>(tone.size()), high_left.data(),
                     high_right.data(), low.data());
    EXPECT_EQ(high_left, high_right);
    return Db(Power(bass ? low : high_left, 48000) / Power(tone, 48000));
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
