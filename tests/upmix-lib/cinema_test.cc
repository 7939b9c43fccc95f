// The cinema upmix through its entry points. HRIRs that let single planes through make
// the planes audible one by one.
#include <gtest/gtest.h>

#include "tests/upmix-lib/components.h"
#include "upmix-lib/cinema_bass.h"

namespace kelda::upmix_lib {
namespace {

constexpr std::size_t kFrames = 188 * kBlock;  // 4 s

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

TEST(Cinema, IsNinetySixFramesLate) {
  for (const int at : {2000, 2033}) {
    const Signal impulse = BandLimitedImpulse(8192, at), silence(8192);
    EXPECT_EQ(LatencyFrames(impulse, CinemaInstance(Dry()).Process({impulse, impulse})[0]), 96);
    EXPECT_EQ(LatencyFrames(impulse, CinemaInstance(Dry()).Process({impulse, silence})[1]), 96);
  }
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
    if (plane < kSL) continue;
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
  for (const std::size_t ear : {0u, 1u}) delayed.responses[(kFC * kEars + ear) * 32 + 20] = 0.5f;
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
    const Signal tone = Sine(hz, 1.0, 96000);
    Signal high_left(tone.size()), high_right(tone.size()), low(tone.size());
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
