// The default ears and the room around them: level differences between the ears, colour,
// the room's share, and what both make of whole sounds behind either upmix.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>

#include "tests/laboratory/components.h"
#include "tools/measure/band_power.h"
#include "tools/measure/ear_figures.h"
#include "tools/measure/frequency_response.h"
#include "upmix-lib/binaural/plane_renderer.h"

namespace kelda::upmix_lib {
namespace {

using tools::ResponseAt;

const HrirSet& DefaultEars() {
  static const HrirSet set = [] {
    HrirSet loaded;
    EXPECT_EQ(LoadHrirSet(KELDA_DEFAULT_TUNING "/standard.hki", loaded), kOk);
    return loaded;
  }();
  return set;
}

// Mean power of a response in an octave around `centre_hz`.
double BandPower(std::span<const float> taps, double centre_hz) {
  constexpr int kSteps = 24;
  double power = 0.0;
  for (int i = 0; i < kSteps; ++i) {
    power += std::norm(ResponseAt(taps, centre_hz * std::exp2((i + 0.5) / kSteps - 0.5)));
  }
  return power / kSteps;
}

// Left over right, in an octave around `centre_hz`.
double LevelDifferenceDb(std::span<const float> left, std::span<const float> right,
                         double centre_hz) {
  return 10.0 * std::log10(BandPower(left, centre_hz) / BandPower(right, centre_hz));
}

constexpr double kOctavesHz[] = {250, 500, 1000, 2000, 4000, 8000};

// As the default tuning has them.
CinemaParameters DefaultCinema() {
  CinemaParameters parameters = {};
  const std::string path = KELDA_DEFAULT_TUNING "/upmix.cinema.hps.bin";
  std::vector<std::byte> file;
  EXPECT_EQ(ReadDataFile(path, kCinemaKind, file), kOk);
  EXPECT_EQ(LoadParameters(file.data(), kCinemaKind, kCinemaFields, parameters), kOk);
  return parameters;
}

// Both ears' power in third octaves from 125 Hz to 10 kHz.
tools::Power BothEars(std::span<const float> left, std::span<const float> right) {
  constexpr std::size_t kSize = 32768;
  static const tools::SpectrumAnalysis analysis(kSize);
  tools::Power sum = analysis.PowerOf(left);
  const tools::Power other = analysis.PowerOf(right);
  for (std::size_t k = 0; k < sum.size(); ++k) {
    sum[k] += other[k];
  }
  return tools::ThirdOctavePowers(sum, kSize, tools::ThirdOctaves());
}

// No direction is coloured by more than a good loudspeaker.
TEST(DefaultHrirs, AreNeutral) {
  const HrirSet& set = DefaultEars();
  const std::vector<float> impulse = {std::sqrt(0.5f)};
  const tools::Power flat = BothEars(impulse, impulse);
  double mean_power = 0.0;
  for (int plane = 0; plane < kPlanes; ++plane) {
    const tools::Power power = BothEars(set.response(plane, 0), set.response(plane, 1));
    EXPECT_LT(tools::PeakToPeakDb(power, flat), 1.8) << plane;
    for (std::size_t i = 0; i < power.size(); ++i) {
      mean_power += power[i] / flat[i] / static_cast<double>(kPlanes * power.size());
    }
  }
  EXPECT_NEAR(Db(mean_power), 0.0, 1.0);
}

// Without a room the output is the convolution with the HRIRs; the room blurs their level
// differences, but they stay.
TEST(Localisation, LevelDifferencesStayInTheRoom) {
  const HrirSet& set = DefaultEars();
  ASSERT_GT(set.room.early_level_db, kRoomOffDb);
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    Planes in(kPlanes, Signal(12 * kBlock));
    in[plane][0] = 1.0f;
    const Planes ears = VirtualizerInstance(set).Process(in);
    const auto left = set.response(static_cast<int>(plane), 0);
    const auto right = set.response(static_cast<int>(plane), 1);
    for (const double centre_hz : kOctavesHz) {
      const double expected_db = LevelDifferenceDb(left, right, centre_hz);
      EXPECT_NEAR(LevelDifferenceDb(ears[0], ears[1], centre_hz), expected_db,
                  1.5 + 0.25 * std::abs(expected_db))
          << "plane " << plane << ", " << centre_hz << " Hz";
    }
  }
}

// What the ears hear of an impulse in a plane.
Planes ImpulseInCinema(std::size_t plane, const RoomParameters& room) {
  PlaneRenderer renderer(DefaultEars(), room, 0.5f);
  Planes in(kPlanes, Signal(24 * kBlock)), heard(kEars, Signal(24 * kBlock));
  in[plane][0] = 1.0f;
  for (std::size_t at = 0; at < heard[0].size(); at += kBlock) {
    const float* planes[kPlanes];
    std::transform(in.begin(), in.end(), planes,
                   [at](const Signal& samples) { return &samples[at]; });
    renderer.Process(planes, &heard[0][at], &heard[1][at]);
  }
  return heard;
}

Planes ImpulseInMusic(std::size_t plane) {
  Planes in(kPlanes, Signal(24 * kBlock));
  in[plane][0] = 1.0f;
  return VirtualizerInstance(DefaultEars()).Process(in);
}

// The planes around are in it, the centre keeps its colour.
TEST(Room, SurroundsTheSidesAndLeavesTheCentreItsColour) {
  const CinemaParameters cinema = DefaultCinema();
  const RoomParameters of_films = {
      cinema.room_early_level_db, cinema.room_level_db, cinema.room_decay_s, 7.0f, 4000.0f, {}};
  for (const bool film : {false, true}) {
    for (const std::size_t plane : {kFL, kSR, kBL, kFC}) {
      const Planes heard = film ? ImpulseInCinema(plane, of_films) : ImpulseInMusic(plane);
      if (plane == kFC) {
        EXPECT_LT(tools::PeakToPeakDb(
                      BothEars(heard[0], heard[1]),
                      BothEars(DefaultEars().response(kFC, 0), DefaultEars().response(kFC, 1))),
                  0.7);
        continue;
      }
      const auto direct = [](const Signal& ear) { return Power(std::span(ear).first(144)) * 144; };
      const Signal& nearer = direct(heard[0]) >= direct(heard[1]) ? heard[0] : heard[1];
      const double whole = Power(nearer) * static_cast<double>(nearer.size());
      const double direct_db = Db(direct(nearer) / (whole - direct(nearer)));
      EXPECT_NEAR(direct_db, film ? 9.5 : 13.5, 1.5) << plane;
    }
  }
}

// Pink noise from places of the image, behind either upmix, ears and room of the default tuning.
TEST(DefaultTuning, ColoursNoPlaceAndMakesWideSoundDiffuse) {
  constexpr std::size_t kFrames = 1u << 20u;
  for (const bool film : {false, true}) {
    const tools::StereoSystem chain = [film](const Planes& in) {
      return film ? CinemaInstance(DefaultCinema(), DefaultEars()).Process(in)
                  : VirtualizerInstance(DefaultEars()).Process(MusicInstance().Process(in));
    };
    for (const tools::Image image :
         {tools::Image::kCentre, tools::Image::kLeft, tools::Image::kDiffuse}) {
      const tools::HeardNoise heard = tools::Hear(chain, image, kFrames);
      const auto place = (film ? "cinema " : "music ") + std::to_string(static_cast<int>(image));
      EXPECT_LT(tools::ColourDb(heard), 4.0) << place;
      EXPECT_NEAR(tools::TrebleDb(heard), 0.0, 2.0) << place;
      if (image == tools::Image::kDiffuse) {  // 0.02 by chance, in 14 s
        EXPECT_LT(tools::MeasureCoherence(heard.ears).Off(), 0.12) << place;
        EXPECT_LT(tools::ColourationSone(heard), 1.1) << place;
      } else {
        EXPECT_LT(tools::ColourationSone(heard), film ? 0.8 : 0.6) << place;
      }
    }
  }
}

TEST(Room, HasItsTimesAndStaysOutOfTheBass) {
  HrirSet ears = SilentHrirs(1);  // that hear every plane alike and at once
  ears.responses.assign(ears.responses.size(), 1.0f);
  for (const float size_m : {3.0f, 5.0f, 12.0f}) {
    const RoomResponses room = MakeRoomResponses({-12.0f, -18.0f, 0.3f, size_m, 5000.0f, {}}, ears);
    const auto taps = static_cast<std::size_t>(room.taps);
    ASSERT_GT(taps, 0u);
    // The two ears' share of the direct sound's energy, as asked for.
    const double energy = Power(room.responses) * static_cast<double>(room.responses.size());
    EXPECT_NEAR(Db(energy / kRoomSides / kEars), Db(std::pow(10.0, -1.2) + std::pow(10.0, -1.8)),
                1.0);
    double earlier = 0, later = 0;  // power of the tail around 1 kHz
    for (std::size_t side_and_ear = 0; side_and_ear < kRoomSides * kEars; ++side_and_ear) {
      const std::span response(&room.responses[side_and_ear * taps], taps);
      // The image in the side wall is 0.184 sizes farther away than the loudspeaker.
      const auto first =
          std::find_if(response.begin(), response.end(), [](float t) { return t != 0; });
      EXPECT_NEAR(static_cast<double>(first - response.begin()),
                  0.184 * size_m / 343 * kSampleRateHz, 2)
          << size_m;
      earlier += BandPower(response.subspan(5000, 2048), 1000);
      later += BandPower(response.subspan(5000 + 4800, 2048), 1000);
      for (const double freq_hz : {10.0, 30.0, 50.0}) {  // beside the direct sound's 0 dB
        EXPECT_LT(Db(std::norm(ResponseAt(response, freq_hz))), -20.0) << freq_hz << " Hz";
      }
    }
    // 60 dB in 0.3 s, and at 1 kHz in a sixth less.
    EXPECT_NEAR(Db(earlier / later), 60 * 0.1 / 0.3 * 1.2, 2) << size_m;
  }
}

// Reflections come through the planes nearest to them, which may be silent.
TEST(Room, HasItsLevelWhicheverPlanesAreSilent) {
  const auto energy_of = [](const HrirSet& ears) {
    const RoomResponses room = MakeRoomResponses({-12, kRoomOffDb, 0.3f, 5, 5000, {}}, ears);
    return Power(room.responses) * static_cast<double>(room.responses.size());
  };
  for (std::size_t audible = 0; audible < kPlanes; ++audible) {
    EXPECT_NEAR(Db(energy_of(Probe({audible})) / kRoomSides),
                Db(std::pow(10.0, -1.2) * kEars / kPlanes), 0.1);
  }
  EXPECT_EQ(energy_of(Probe({})), 0.0);
}

}  // namespace
}  // namespace kelda::upmix_lib
