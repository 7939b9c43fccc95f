// `kelda tune hrtf`: HRIR sets from SOFA files of heads whose truth is known.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <map>
#include <numbers>

#include "tests/tools/expectations.h"
#include "tests/tools/program.h"
#include "tests/tools/sofa_writer.h"
#include "tools/ears/hrtf_directions.h"
#include "tools/ears/measured_ears.h"
#include "tools/ears/tuned_hrirs.h"
#include "tools/measure/frequency_response.h"
#include "tools/measure/hrir_cues.h"
#include "upmix-lib/binaural/hrir_set.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::HrirSet;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;

constexpr double kDegree = std::numbers::pi / 180;

class TuneHrtf : public testing::Test {
 protected:
  HrirSet Tuned(const SofaContents& contents, const std::vector<std::string>& options = {}) {
    WriteSofa(ears_, contents);
    std::vector<std::string> arguments = tune_;
    arguments.insert(arguments.end(), options.begin(), options.end());
    printed_ = Succeed(arguments).out;
    HrirSet set;
    EXPECT_EQ(upmix_lib::kOk, upmix_lib::LoadHrirSet(folder_ / "out.hki", set));
    return set;
  }

  static void ExpectTheHead(const HrirSet& set, double tolerance_us) {
    for (int plane = 0; plane < kPlanes; ++plane) {
      const double azimuth_deg = kPlaneDirections[plane].azimuth_deg;
      SCOPED_TRACE(azimuth_deg);
      const HrirCues cues = MeasureCues(set, plane);
      EXPECT_NEAR(1e6 * WoodworthDelayS(azimuth_deg, 0), cues.delay_us, tolerance_us);
      EXPECT_NEAR(12 * std::sin(azimuth_deg * kDegree), cues.level_db, 0.4);
    }
  }

  const TemporaryFolder folder_;
  const std::string ears_ = folder_ / "ears.sofa";
  const std::vector<std::string> tune_{"tune", "hrtf", ears_, "-o", folder_ / "out.hki"};
  std::string printed_;
};

TEST_F(TuneHrtf, KeepsTimeAndLevelAtAnyRateInAnyCoordinates) {
  for (const double rate_hz : {44100.0, 48000.0, 96000.0}) {
    SCOPED_TRACE(rate_hz);
    ExpectTheHead(Tuned(SphericalHead(15, rate_hz)), 6);
  }
  SofaContents cartesian = SphericalHead(15, 48000);
  cartesian.position_type = "cartesian";
  cartesian.position_units = "metre";
  for (SofaMeasurement& m : cartesian.measurements) {
    const auto [azimuth_deg, elevation_deg, radius] = m.position;
    const auto flat = std::polar(radius * std::cos(elevation_deg * kDegree), azimuth_deg * kDegree);
    m.position = {flat.real(), flat.imag(), radius * std::sin(elevation_deg * kDegree)};
  }
  ExpectTheHead(Tuned(cartesian), 6);
  EXPECT_TRUE(Holds(printed_, "source          spheres, ball, someone\n"));
  EXPECT_TRUE(Holds(printed_, "licence         for tests only\n"));
}

// The same head with one Data.Delay for all, and what is left of its delays in the responses.
TEST_F(TuneHrtf, TakesDelaysFromTheResponsesToo) {
  SofaContents head = SphericalHead(15, 96000);
  head.delays_of_all = {3, 8};
  for (SofaMeasurement& m : head.measurements) {
    for (std::size_t ear = 0; ear < 2; ++ear) {
      std::vector<double>& taps = m.responses[ear];
      const double later = m.delays[ear] - head.delays_of_all[ear];
      const auto length = static_cast<long>(taps.size());
      std::rotate(taps.begin(), taps.end() - (std::lround(later) + length) % length, taps.end());
    }
  }
  ExpectTheHead(Tuned(head), 12);  // delays were rounded to 10 us
}

TEST_F(TuneHrtf, InterpolatesBetweenMeasurements) {
  const HrirSet set = Tuned(SphericalHead(20, 48000));
  const double at_20_us = 1e6 * WoodworthDelayS(20, 0), at_40_us = 1e6 * WoodworthDelayS(40, 0);
  EXPECT_NEAR((at_20_us + at_40_us) / 2, MeasureCues(set, 0).delay_us, 6);
  EXPECT_TRUE(Holds(printed_, "FL           +30        2     10.0      10.0"));
}

TEST_F(TuneHrtf, HasTheLevelOfTheDiffuseField) {
  SofaContents loud = SphericalHead(15, 48000);
  for (SofaMeasurement& m : loud.measurements) {
    for (auto& ear : m.responses) {
      ear[8] *= 100;  // the only tap
    }
  }
  const HrirSet set = Tuned(loud);
  double power = 0;
  for (int plane = 0; plane < kPlanes; ++plane) {
    for (int ear = 0; ear < 2; ++ear) {
      power += std::norm(ResponseAt(set.response(plane, ear), 2000));
    }
  }
  EXPECT_NEAR(0, 10 * std::log10(power / kPlanes), 1.5);
}

TEST_F(TuneHrtf, TakesRoomLengthAndNames) {
  folder_.Write("room.toml", "decay_s = 0.5");
  const HrirSet set = Tuned(SphericalHead(15, 48000),
                            {"--room", folder_ / "room.toml", "--taps", "128", "--source", "me",
                             "--licence", "\xC3\xA4" + std::string(60, 'x') + "\xC3\xA4"});
  EXPECT_EQ(0.5f, set.room.decay_s);
  EXPECT_EQ(128, set.taps);
  EXPECT_EQ("me", set.source);
  EXPECT_EQ("\xC3\xA4" + std::string(60, 'x'), set.licence);  // cut between characters
}

TEST_F(TuneHrtf, WarnsOfEarsWithoutDirection) {
  SofaContents head = SphericalHead(15, 48000);
  Tuned(head);
  EXPECT_FALSE(Holds(printed_, "warning"));
  for (SofaMeasurement& m : head.measurements) {
    m.delays[0] = m.delays[1] = 0;
  }
  Tuned(head);
  EXPECT_TRUE(Holds(printed_, "warning         no loudspeaker has a delay between the ears"));
  for (SofaMeasurement& m : head.measurements) {
    m.responses[0] = m.responses[1];
  }
  Tuned(head);
  EXPECT_TRUE(Holds(printed_, "warning         these ears give no direction"));
}

TEST_F(TuneHrtf, RefusesWithReasonAndLimit) {
  using Contents = SofaContents&;
  const struct {
    const char* message;
    std::function<void(Contents)> change;
  } kCases[] = {
      {"its conventions are 'GeneralFIR', not 'SimpleFreeFieldHRIR'\n",
       [](Contents c) { c.conventions = "GeneralFIR"; }},
      {"its receivers are not the left ear and then the right one, on the y axis\n",
       [](Contents c) { c.first_receiver_y_m = -0.09; }},
      {"the listener is turned (ListenerView)\n", [](Contents c) { c.listener_view_y = 1; }},
      {"its sampling rate is out of range (22050 Hz, 32000 to 384000 Hz)\n",
       [](Contents c) { c.rate_hz = 22050; }},
      {"its responses hold NaN or infinity\n",
       [](Contents c) { c.measurements[0].responses[0][5] = std::nan(""); }},
      {"it holds no measurement\n", [](Contents c) { c.measurements.clear(); }},
      {"its responses are silent\n",
       [](Contents c) {
         for (auto& m : c.measurements) {
           m.responses[0][8] = m.responses[1][8] = 0;
         }
       }},
      {"Data.Delay is out of range (-1 samples, 0 to 48000)\n",
       [](Contents c) { c.measurements[0].delays[0] = -1; }},
      {"the interaural delay at azimuth 0 is too long for a head (4167 us, at most 1000 us)\n",
       [](Contents c) { c.measurements[72].delays[1] = 200; }},
      {"no measurements around azimuth 90, elevation 0 degrees (the nearest is ",
       [](Contents c) {
         std::erase_if(c.measurements, [](const SofaMeasurement& m) {
           return m.position[0] > 60 && m.position[0] < 300;
         });
       }},
      {"the ears are exchanged: sound from azimuth 30 reaches",
       [](Contents c) {
         for (auto& m : c.measurements) {
           std::swap(m.delays[0], m.delays[1]);
         }
       }},
  };
  for (const auto& [message, change] : kCases) {
    SofaContents head = SphericalHead(15, 48000);
    change(head);
    WriteSofa(ears_, head);
    ExpectRefused(3, ears_ + ": " + message, tune_);
  }
  std::filesystem::resize_file(ears_, std::filesystem::file_size(ears_) / 2);
  ExpectRefused(3, ears_ + ": ", tune_);
  std::filesystem::remove(ears_);
  ExpectRefused(3, "kelda: " + ears_ + ": cannot be read: No such file or directory\n", tune_);
  EXPECT_TRUE(folder_.Names().empty());
}

TEST(HrtfDirections, FindsTheArcOrTriangleAround) {
  const std::vector<HrirPlane> measured = {{20, 0}, {40, 0}, {30, 12}, {90, -4}, {-90, -8}};
  const auto weights = [&](const HrirPlane& direction) {
    std::map<std::size_t, double> of_index;
    for (const auto& m : MeasurementsAt(measured, direction)) {
      of_index[m.index] = m.weight;
    }
    return of_index;
  };
  EXPECT_EQ((std::map<std::size_t, double>{{1, 1.0}}), weights({40.2f, 0}));
  auto arc = weights({25, 0});
  ASSERT_EQ(2u, arc.size());
  EXPECT_NEAR(0.75, arc[0], 0.01);
  EXPECT_NEAR(0.25, arc[1], 0.01);
  auto triangle = weights({30, 6});
  ASSERT_EQ(3u, triangle.size());
  EXPECT_NEAR(1, triangle[0] + triangle[1] + triangle[2], 1e-12);
  EXPECT_NEAR(0.5, triangle[2], 0.01);
  EXPECT_EQ(1u, MeasurementsAt(measured, {90, 0}).size());  // alone, 4 degrees away
  EXPECT_TRUE(MeasurementsAt(measured, {-90, 0}).empty());  // 8 degrees away
}

}  // namespace
}  // namespace kelda::tools
