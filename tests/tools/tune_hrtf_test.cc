// `kelda tune hrtf`: HRIR sets from SOFA files of heads whose truth is known.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

#include "tests/tools/program.h"
#include "tests/tools/sofa_writer.h"
#include "tools/file_problems.h"
#include "tools/hrtf_directions.h"
#include "tools/measured_ears.h"
#include "tools/tuned_hrirs.h"
#include "upmix-lib/hrir_set.h"

namespace kelda::tools {
namespace {

using upmix_lib::HrirPlane;
using upmix_lib::HrirSet;
using upmix_lib::kPlaneDirections;
using upmix_lib::kPlanes;

std::complex<double> At(std::span<const float> taps, double freq_hz) {
  std::complex<double> sum = 0;
  for (size_t n = 0; n < taps.size(); ++n) {
    sum += static_cast<double>(taps[n]) *
           std::polar(1.0, -2 * std::numbers::pi * freq_hz / 48000 * static_cast<double>(n));
  }
  return sum;
}

class TuneHrtf : public testing::Test {
 protected:
  ProgramResult Tune(const SofaContents& contents, std::vector<std::string> options = {}) {
    WriteSofa(folder_ / "ears.sofa", contents);
    options.insert(options.begin(),
                   {"tune", "hrtf", folder_ / "ears.sofa", "-o", folder_ / "out.hki"});
    return RunKelda(options);
  }

  HrirSet Tuned(const SofaContents& contents, const std::vector<std::string>& options = {}) {
    const ProgramResult result = Tune(contents, options);
    EXPECT_EQ(0, result.exit_code) << result.err;
    printed_ = result.out;
    HrirSet set;
    EXPECT_EQ(upmix_lib::kOk, upmix_lib::LoadHrirSet(folder_ / "out.hki", set));
    return set;
  }

  // What is wrong with the ears, without their name.
  std::string Refusal(const SofaContents& contents) {
    const ProgramResult result = Tune(contents);
    EXPECT_EQ(3, result.exit_code);
    EXPECT_FALSE(folder_.Names().contains("out.hki"));
    const std::string name = folder_ / "ears.sofa" + ": ";
    return result.err.starts_with(name) ? result.err.substr(name.size()) : result.err;
  }

  // The right ear's delay behind the left: the peak of their cross-correlation, each
  // frequency from 200 Hz to 1.5 kHz counting alike.
  static double Interaural_us(const HrirSet& set, int plane) {
    constexpr int kLowest_hz = 200, kHighest_hz = 1500, kStep_hz = 25;
    std::vector<double> phases;
    for (int freq_hz = kLowest_hz; freq_hz <= kHighest_hz; freq_hz += kStep_hz) {
      phases.push_back(
          std::arg(At(set.response(plane, 1), freq_hz) / At(set.response(plane, 0), freq_hz)));
    }
    double peak = -1e9, peak_us = 0;
    for (int delay_us = -900; delay_us <= 900; ++delay_us) {
      double sum = 0;
      for (size_t i = 0; i < phases.size(); ++i) {
        const double freq_hz = kLowest_hz + kStep_hz * static_cast<double>(i);
        sum += std::cos(phases[i] + 2e-6 * std::numbers::pi * freq_hz * delay_us);
      }
      if (sum > peak) {
        peak = sum;
        peak_us = delay_us;
      }
    }
    return peak_us;
  }

  // Left over right at 1 kHz.
  static double Level_db(const HrirSet& set, int plane) {
    return 20 * std::log10(std::abs(At(set.response(plane, 0), 1000)) /
                           std::abs(At(set.response(plane, 1), 1000)));
  }

  void ExpectTheHead(const HrirSet& set, double tolerance_us) {
    for (int plane = 0; plane < static_cast<int>(kPlanes); ++plane) {
      const double azimuth_deg = kPlaneDirections[plane].azimuth_deg;
      EXPECT_NEAR(1e6 * WoodworthDelay_s(azimuth_deg, 0), Interaural_us(set, plane), tolerance_us)
          << azimuth_deg;
      EXPECT_NEAR(12 * std::sin(azimuth_deg * std::numbers::pi / 180), Level_db(set, plane), 0.4)
          << azimuth_deg;
    }
  }

  TemporaryFolder folder_;
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
  for (auto& [x, y, z] : cartesian.positions) {
    const double azimuth = x * std::numbers::pi / 180, elevation = y * std::numbers::pi / 180;
    const double radius = z;
    x = radius * std::cos(elevation) * std::cos(azimuth);
    y = radius * std::cos(elevation) * std::sin(azimuth);
    z = radius * std::sin(elevation);
  }
  ExpectTheHead(Tuned(cartesian), 6);
  EXPECT_NE(std::string::npos, printed_.find("source          spheres, ball, someone\n"));
  EXPECT_NE(std::string::npos, printed_.find("licence         for tests only\n")) << printed_;
}

// The same head with its delays in the responses and one Data.Delay for all.
TEST_F(TuneHrtf, TakesDelaysFromTheResponsesToo) {
  SofaContents head = SphericalHead(15, 96000);
  for (size_t i = 0; i < head.delays.size(); ++i) {
    const auto response = head.responses.begin() + static_cast<ptrdiff_t>(i * head.taps);
    std::rotate(response,
                response + static_cast<ptrdiff_t>(head.taps) - std::lround(head.delays[i]),
                response + static_cast<ptrdiff_t>(head.taps));
  }
  head.delays = {3, 3};
  ExpectTheHead(Tuned(head), 12);  // delays were rounded to 10 us
}

TEST_F(TuneHrtf, InterpolatesBetweenMeasurements) {
  const HrirSet set = Tuned(SphericalHead(20, 48000));
  const double at_20_us = 1e6 * WoodworthDelay_s(20, 0), at_40_us = 1e6 * WoodworthDelay_s(40, 0);
  EXPECT_NEAR((at_20_us + at_40_us) / 2, Interaural_us(set, 0), 6);
  EXPECT_NE(std::string::npos, printed_.find("FL           +30        2     10.0      10.0"))
      << printed_;
}

TEST_F(TuneHrtf, SwapsReceiversThatAreTheOtherWayRound) {
  SofaContents head = SphericalHead(15, 48000);
  head.first_receiver_y_m = -0.09;
  for (size_t m = 0; m < head.positions.size(); ++m) {
    std::swap(head.delays[2 * m], head.delays[2 * m + 1]);
    const auto left = head.responses.begin() + static_cast<ptrdiff_t>(2 * m * head.taps);
    std::swap_ranges(left, left + static_cast<ptrdiff_t>(head.taps),
                     left + static_cast<ptrdiff_t>(head.taps));
  }
  // libmysofa takes receivers in one order only; whoever changes that finds them swapped.
  const ProgramResult result = Tune(head);
  if (result.exit_code == 0) {
    HrirSet set;
    ASSERT_EQ(upmix_lib::kOk, upmix_lib::LoadHrirSet(folder_ / "out.hki", set));
    ExpectTheHead(set, 6);
  } else {
    EXPECT_NE(std::string::npos, result.err.find("receivers")) << result.err;
  }
}

TEST_F(TuneHrtf, HasTheLevelOfTheDiffuseField) {
  SofaContents loud = SphericalHead(15, 48000);
  for (double& sample : loud.responses) sample *= 100;
  const HrirSet set = Tuned(loud);
  double power = 0;
  for (int plane = 0; plane < static_cast<int>(kPlanes); ++plane) {
    for (int ear = 0; ear < 2; ++ear) power += std::norm(At(set.response(plane, ear), 2000));
  }
  EXPECT_NEAR(0, 10 * std::log10(power / kPlanes), 1.5);
}

TEST_F(TuneHrtf, TakesRoomLengthAndNames) {
  folder_.Write("room.toml", "decay_s = 0.5");
  const HrirSet set = Tuned(SphericalHead(15, 48000),
                            {"--room", folder_ / "room.toml", "--taps", "128", "--source", "me",
                             "--licence", "\xC3\xA4" + std::string(61, 'x') + "\xC3\xA4"});
  EXPECT_EQ(0.5F, set.room.decay_s);
  EXPECT_EQ(128, set.taps);
  EXPECT_EQ("me", set.source);
  EXPECT_EQ("\xC3\xA4" + std::string(61, 'x'), set.licence);  // cut between characters
}

TEST_F(TuneHrtf, RefusesWithReasonAndLimit) {
  const SofaContents head = SphericalHead(15, 48000);
  const auto changed = [&](auto change) {
    SofaContents contents = head;
    change(contents);
    return Refusal(contents);
  };
  EXPECT_EQ("its conventions are 'GeneralFIR', not 'SimpleFreeFieldHRIR'\n",
            changed([](auto& c) { c.conventions = "GeneralFIR"; }));
  EXPECT_EQ("its sampling rate is out of range (22050 Hz, 32000 to 384000 Hz)\n",
            changed([](auto& c) { c.rate_hz = 22050; }));
  EXPECT_EQ("its responses hold a value that is no number\n",
            changed([](auto& c) { c.responses[5] = std::numeric_limits<double>::quiet_NaN(); }));
  EXPECT_EQ("its responses are silent\n",
            changed([](auto& c) { c.responses.assign(c.responses.size(), 0.0); }));
  EXPECT_EQ("Data.Delay is out of range (-1 samples, 0 to 48000)\n",
            changed([](auto& c) { c.delays[0] = -1; }));
  EXPECT_EQ(0U, changed([](auto& c) { c.delays[size_t{2} * 72 + 1] = 200; })
                    .find("the interaural delay at azimuth 0 is not a head's (4167 us, at most "
                          "1000 us)\n"));
  // Only what lies ahead was measured.
  const std::string half = changed([](auto& c) {
    SofaContents front = c;
    front.positions.clear();
    front.responses.clear();
    front.delays.clear();
    for (size_t m = 0; m < c.positions.size(); ++m) {
      const double azimuth_deg = c.positions[m][0];
      if (azimuth_deg > 60 && azimuth_deg < 300) continue;
      front.positions.push_back(c.positions[m]);
      front.delays.insert(front.delays.end(), {c.delays[2 * m], c.delays[2 * m + 1]});
      const auto at = c.responses.begin() + static_cast<ptrdiff_t>(2 * m * c.taps);
      front.responses.insert(front.responses.end(), at, at + static_cast<ptrdiff_t>(2 * c.taps));
    }
    c = front;
  });
  EXPECT_EQ(0U,
            half.find("no measurements around azimuth 90, elevation 0 degrees (the nearest is "))
      << half;
  const std::string exchanged = changed([](auto& c) {
    for (size_t m = 0; m < c.positions.size(); ++m) std::swap(c.delays[2 * m], c.delays[2 * m + 1]);
  });
  EXPECT_EQ(0U, exchanged.find("the ears are exchanged: sound from azimuth 30 reaches"))
      << exchanged;
}

TEST_F(TuneHrtf, SurvivesDamagedFiles) {
  WriteSofa(folder_ / "whole.sofa", SphericalHead(90, 48000));
  const std::string whole = folder_.Read("whole.sofa");
  const auto refused = [&](const std::string& bytes) {
    folder_.Write("ears.sofa", bytes);
    const ProgramResult result =
        RunKelda({"tune", "hrtf", folder_ / "ears.sofa", "-o", folder_ / "out.hki"});
    EXPECT_EQ(3, result.exit_code) << result.err;
    EXPECT_EQ(0U, result.err.find(folder_ / "ears.sofa" + ": "));
  };
  for (size_t length = 0; length < whole.size(); length += 1 + whole.size() / 40) {
    refused(whole.substr(0, length));
  }
  refused(std::string(100000, '\xFF'));
  EXPECT_EQ(folder_ / "none: cannot be opened\n",
            RunKelda({"tune", "hrtf", folder_ / "none", "-o", folder_ / "out.hki"}).err);
}

TEST(HrtfDirections, FindsTheArcOrTriangleAround) {
  const std::vector<HrirPlane> measured = {{20, 0}, {40, 0}, {30, 12}, {90, -4}, {-90, -8}};
  const auto exact = MeasurementsAt(measured, {40.2F, 0});
  ASSERT_EQ(1U, exact.size());
  EXPECT_EQ(1U, exact[0].index);

  const auto arc = MeasurementsAt(measured, {25, 0});
  ASSERT_EQ(2U, arc.size());
  EXPECT_EQ(0U, arc[0].index);
  EXPECT_NEAR(0.75, arc[0].weight, 0.01);
  EXPECT_NEAR(0.25, arc[1].weight, 0.01);

  const auto triangle = MeasurementsAt(measured, {30, 6});
  ASSERT_EQ(3U, triangle.size());
  double sum = 0, upper = 0;
  for (const auto& m : triangle) {
    sum += m.weight;
    if (m.index == 2) upper = m.weight;
  }
  EXPECT_NEAR(1, sum, 1e-12);
  EXPECT_NEAR(0.5, upper, 0.01);

  EXPECT_EQ(1U, MeasurementsAt(measured, {90, 0}).size());  // alone, 4 degrees away
  EXPECT_TRUE(MeasurementsAt(measured, {-90, 0}).empty());  // 8 degrees away
}

TEST(HrtfDirections, SharesTheSphereByArea) {
  // Rings 10 degrees apart: every one has the area of its zone, whatever is on it.
  std::vector<HrirPlane> measured;
  for (int elevation_deg = -80; elevation_deg <= 80; elevation_deg += 10) {
    const int step_deg = elevation_deg == 0 ? 5 : 8;
    for (int azimuth_deg = -180; azimuth_deg < 180; azimuth_deg += step_deg) {
      measured.push_back({static_cast<float>(azimuth_deg), static_cast<float>(elevation_deg)});
    }
  }
  const SphereShares shares = ShareSphere(measured);
  EXPECT_NEAR(1, shares.covered, 1e-9);
  double equator = 0;
  for (size_t m = 0; m < measured.size(); ++m) {
    if (measured[m].elevation_deg == 0) equator += shares.of_measurement[m];
  }
  EXPECT_NEAR(std::sin(5 * std::numbers::pi / 180), equator, 0.01);
}

}  // namespace
}  // namespace kelda::tools
