// The instruments, on signals whose figure is known by construction.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "assurance/sound/sound_file.h"
#include "tools/measure/band_power.h"
#include "tools/measure/colouration.h"
#include "tools/measure/ear_figures.h"
#include "tools/measure/intelligibility.h"
#include "tools/measure/level_figures.h"
#include "tools/measure/plane_figures.h"
#include "tools/measure/room_figures.h"

namespace kelda::sound {
namespace {

using upmix_lib::PinkNoise;

Signal Scaled(Signal signal, double gain_db) {
  for (float& sample : signal) {
    sample *= static_cast<float>(std::pow(10.0, gain_db / 20));
  }
  return signal;
}

Signal Plus(Signal signal, const Signal& other, float gain = 1) {
  upmix_lib::AddTo(signal, other, gain);
  return signal;
}

const tools::StereoSystem kBypass = [](const Planes& in) { return in; };

TEST(SoundInstruments, TellTheWantedFromTheRest) {
  const Signal speech = upmix_lib::Speech(10, 1)[0], noise = PinkNoise(9, speech.size());
  const Signal mixture = Plus(speech, noise, 0.1f);  // both of unit power
  EXPECT_NEAR(tools::SiSdrDb(Scaled(mixture, -7), speech), 20, 0.5);
  EXPECT_NEAR(tools::Estoi(Scaled(speech, -7), speech), 1, 1e-6);
  EXPECT_GT(tools::Estoi(mixture, speech), tools::Estoi(Plus(speech, noise), speech) + 0.1);
  EXPECT_NEAR(tools::Estoi(noise, speech), 0, 0.1);
}

TEST(SoundInstruments, FindAStemAgainInItsPlane) {
  const Signal stem = PinkNoise(1, 96000), other = PinkNoise(2, 96000);
  // Three quarters of the left channel's power stay there, one quarter goes to plane 3.
  const tools::Upmix upmix = [](const Planes& in) {
    Planes planes(7, Signal(in[0].size()));
    upmix_lib::AddTo(planes[0], in[0], std::sqrt(0.75f));
    upmix_lib::AddTo(planes[3], in[0], 0.5f);
    upmix_lib::AddTo(planes[1], in[1]);
    return planes;
  };
  const Planes by_plane =
      tools::StemByPlane(upmix, {Plus(stem, other), other}, {stem, Signal(96000)});
  EXPECT_NEAR(upmix_lib::Power(by_plane[0]) / upmix_lib::Power(stem), 0.75, 1e-4);
  const auto shares = tools::Shares(by_plane);
  EXPECT_NEAR(shares[0], 0.75, 1e-4);
  EXPECT_NEAR(shares[3], 0.25, 1e-4);
  EXPECT_NEAR(shares[1], 0, 1e-9);
}

TEST(SoundInstruments, FindLinesButNoTones) {
  const auto tones = tools::TonePairs()[0];
  EXPECT_LT(tools::MeasureLines(kBypass, tones).worst_db, -85);
  // A gain that swings 100 times a second makes lines 100 Hz beside each tone, 46 dB below it.
  const tools::StereoSystem tremolo = [](Planes in) {
    for (Signal& channel : in) {
      for (std::size_t n = 0; n < channel.size(); ++n) {
        const double angle = 2 * std::numbers::pi * 100 * static_cast<double>(n) / 48000;
        channel[n] *= static_cast<float>(1 + 0.01 * std::cos(angle));
      }
    }
    return in;
  };
  EXPECT_NEAR(tools::MeasureLines(tremolo, tones).worst_db, -46.0, 0.3);
}

TEST(SoundInstruments, HearColourAndSpace) {
  constexpr std::size_t kFrames = 1048576;
  const tools::HeardNoise wide = tools::Hear(kBypass, tools::Image::kDiffuse, kFrames);
  const tools::HeardNoise centre = tools::Hear(kBypass, tools::Image::kCentre, kFrames);
  EXPECT_NEAR(tools::ColourDb(centre) + tools::ColourationSone(centre), 0, 0.01);
  EXPECT_NEAR(tools::Coherence(wide.ears, 900, 4000), 0, 0.02);
  EXPECT_NEAR(tools::Coherence(centre.ears, 900, 4000), 1, 1e-6);
  EXPECT_NEAR(tools::MeasureExternalisation(centre.ears).level_deviation_db, 0, 1e-6);
  EXPECT_NEAR(tools::WidthDb(wide.ears), 0, 0.3);
  // Four taps of the mean take 8 kHz down, and no level as such is colour.
  const tools::StereoSystem dull = [](const Planes& in) {
    Planes out(2, Signal(in[0].size()));
    for (std::size_t c = 0; c < 2; ++c) {
      for (std::size_t n = 3; n < out[c].size(); ++n) {
        out[c][n] = (in[c][n] + in[c][n - 1] + in[c][n - 2] + in[c][n - 3]) / 8;
      }
    }
    return out;
  };
  const tools::HeardNoise dulled = tools::Hear(dull, tools::Image::kCentre, kFrames);
  EXPECT_NEAR(tools::BassDb(dulled), 0.9, 0.5);  // what the treble loses
  EXPECT_NEAR(tools::TrebleDb(dulled), -8, 1.2);
  EXPECT_GT(tools::ColourationSone(dulled), 1);
  EXPECT_NEAR(tools::Phon(60, 1000), 60, 0.1);
  EXPECT_NEAR(tools::Phon(60, 100), 60 - 18.5, 0.5);  // ISO 226: 60 phon are 78.5 dB at 100 Hz
}

TEST(SoundInstruments, PartTheRoomFromTheDirectSound) {
  // The louder ear hears 1, and -20 dB of it 10 ms later, both after 1 ms; the other a fifth at
  // once.
  Planes response(2, Signal(960));
  response[0][49] = 1;
  response[0][49 + 480] = 0.1f;
  response[1][0] = 0.2f;
  EXPECT_NEAR(tools::DirectOverReverberantDb(response), 20, 1e-3);
  const auto decay_db = tools::EnergyDecayDb(response, 5, 4);
  EXPECT_NEAR(decay_db[0], 0, 1e-3);
  EXPECT_NEAR(decay_db[1], -20.04, 0.01);
  EXPECT_LT(decay_db[3], -150);
  // A copy of the direct sound 1/8 ms later takes 4 kHz away and doubles the bass.
  const Signal bare = {0, 1};
  Planes comb(2, Signal(64));
  comb[0][0] = comb[0][6] = 1;
  EXPECT_GT(tools::RoomRippleDb(comb, {bare, bare}), 12);
  EXPECT_NEAR(tools::RoomRippleDb({Scaled(bare, -7), bare}, {bare, bare}), 0, 1e-3);
}

TEST(SoundInstruments, TellIsolatedPeaksFromNoise) {
  const Signal noise = PinkNoise(5, 4 * 48000);
  Signal gated = noise;
  for (std::size_t n = 0; n < gated.size(); ++n) {
    gated[n] *= n / 480 % 4 == 0 ? 1.0f : 0.01f;
  }
  EXPECT_NEAR(tools::LogKurtosis(Scaled(noise, -30)), std::log(2.0), 0.1);  // of Gaussian noise
  EXPECT_GT(tools::LogKurtosis(gated), std::log(2.0) + 0.3);
}

TEST(SoundInstruments, FollowTheGain) {
  // 10 dB too soft at first, for 2.5 s; too loud for 1.5 s behind a jump; and a dip of 6 dB for
  // a second behind a change of mode.
  const auto scaled_until = [](Planes in, std::size_t from, std::size_t until, double gain_db) {
    for (Signal& channel : in) {
      for (std::size_t n = from; n < until; ++n) {
        channel[n] *= static_cast<float>(std::pow(10.0, gain_db / 20));
      }
    }
    return in;
  };
  const Signal noise = PinkNoise(1, 5 * 48000);
  const Planes programme(2, noise);
  EXPECT_NEAR(tools::SettlingSeconds(
                  [&](const Planes& in) { return scaled_until(in, 0, 120000, -10); }, programme, 2),
              2.5, 0.01);
  EXPECT_NEAR(
      tools::JumpSeconds([&](const Planes& in) { return scaled_until(in, 960000, 1032000, 10); },
                         programme),
      1.5, 0.01);
  const Planes longer(2, PinkNoise(2, 23 * 48000));
  const tools::ModalSystem modal = [&](const Planes& in, const std::string& from,
                                       const std::string& to, std::size_t change) {
    return from == to ? in : scaled_until(in, change, change + 48000, -6);
  };
  EXPECT_NEAR(tools::HandoverDb(tools::HandoverGainsDb(modal, longer, "music", "cinema")), 6, 0.01);
}

}  // namespace
}  // namespace kelda::sound
