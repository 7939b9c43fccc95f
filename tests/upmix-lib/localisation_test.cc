// Where the virtual loudspeakers of the default ears are heard: interaural time and
// level differences, and latency, at the virtualizer's output.
#include <gtest/gtest.h>

#include <complex>
#include <numbers>

#include "tests/upmix-lib/virtualizer_instance.h"

namespace kelda::upmix_lib {
namespace {

const HrirSet& DefaultEars() {
  static const HrirSet set = [] {
    HrirSet loaded;
    EXPECT_EQ(LoadHrirSet(KELDA_DEFAULT_TUNING "/standard.hki", loaded), kOk);
    return loaded;
  }();
  return set;
}

std::complex<double> ResponseAt(std::span<const float> taps, double freq_hz) {
  const std::complex<double> turn = std::polar(1.0, -2.0 * std::numbers::pi * freq_hz / 48000);
  std::complex<double> sum = 0.0;
  for (std::size_t n = taps.size(); n-- > 0;) {
    sum = sum * turn + double{taps[n]};
  }
  return sum;
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
double LevelDifference_db(std::span<const float> left, std::span<const float> right,
                          double centre_hz) {
  return 10.0 * std::log10(BandPower(left, centre_hz) / BandPower(right, centre_hz));
}

// How much later `later` comes than `earlier`, from the peak of their cross-correlation
// below 1.5 kHz, where the ear uses it.
double Delay_us(std::span<const float> earlier, std::span<const float> later) {
  std::vector<std::complex<double>> cross;
  for (int freq_hz = 100; freq_hz <= 1500; freq_hz += 10) {
    cross.push_back(ResponseAt(later, freq_hz) * std::conj(ResponseAt(earlier, freq_hz)));
  }
  double peak = -1.0, peak_us = 0.0;
  for (int delay_us = -1000; delay_us <= 1000; ++delay_us) {
    const double angle = 2e-6 * std::numbers::pi * delay_us;
    const std::complex<double> turn = std::polar(1.0, 10.0 * angle);
    std::complex<double> phase = std::polar(1.0, 100.0 * angle);
    double sum = 0.0;
    for (const std::complex<double>& product : cross) {
      sum += (product * phase).real();
      phase *= turn;
    }
    if (sum > peak) {
      peak = sum;
      peak_us = delay_us;
    }
  }
  return peak_us;
}

// The virtualizer's answer to an impulse on one plane.
Ears Impulse(const HrirSet& set, std::size_t plane, std::size_t blocks) {
  const VirtualizerInstance instance(set);
  Ears ears;
  std::vector<float> in(kPlanes * kBlock);
  in[plane * kBlock] = 1.0f;
  for (std::size_t b = 0; b < blocks; ++b) {
    instance.Process(in, &ears, b == 0 ? 2 : 0);
    in.assign(in.size(), 0.0f);
  }
  return ears;
}

constexpr double kOctaves_hz[] = {250, 500, 1000, 2000, 4000, 8000};

TEST(DefaultHrirs, HaveTheDifferencesOfAHead) {
  const HrirSet& set = DefaultEars();
  ASSERT_EQ(set.taps, 256);
  // Planes 0, 3, 5; Woodworth's sphere of 8.75 cm: 261, 656, 381 us (low frequencies,
  // as measured here, up to half as much again: Kuhn, 1977).
  const std::pair<int, std::pair<double, double>> expected_us[] = {
      {0, {230, 400}}, {3, {600, 850}}, {5, {350, 600}}};
  for (const auto& [plane, range] : expected_us) {
    const double delay_us = Delay_us(set.response(plane, 0), set.response(plane, 1));
    EXPECT_GT(delay_us, range.first) << plane;
    EXPECT_LT(delay_us, range.second) << plane;
    EXPECT_GT(LevelDifference_db(set.response(plane, 0), set.response(plane, 1), 4000), 5.0);
    EXPECT_NEAR(LevelDifference_db(set.response(plane, 0), set.response(plane, 1), 60), 0.0, 0.5);
  }
  // Left and right are alike, and the middle is in the middle.
  for (const int plane : {0, 3, 5}) {
    for (int ear = 0; ear < kEars; ++ear) {
      const auto here = set.response(plane, ear), there = set.response(plane + 1, 1 - ear);
      EXPECT_TRUE(std::equal(here.begin(), here.end(), there.begin()));
    }
  }
  const auto left = set.response(2, 0), right = set.response(2, 1);
  EXPECT_TRUE(std::equal(left.begin(), left.end(), right.begin()));
}

// Both ears together: no direction is coloured by more than a good loudspeaker in a room.
TEST(DefaultHrirs, AreNeutral) {
  const HrirSet& set = DefaultEars();
  double mean_power = 0.0;
  for (int plane = 0; plane < static_cast<int>(kPlanes); ++plane) {
    for (const double centre_hz : kOctaves_hz) {
      const double power = BandPower(set.response(plane, 0), centre_hz) +
                           BandPower(set.response(plane, 1), centre_hz);
      EXPECT_NEAR(10.0 * std::log10(power), 0.0, 4.5) << plane << ", " << centre_hz;
      mean_power += power / (kPlanes * std::size(kOctaves_hz));
    }
  }
  EXPECT_NEAR(10.0 * std::log10(mean_power), 0.0, 1.0);
}

TEST(Localisation, CuesAtTheOutputAreThoseOfTheHrirs) {
  HrirSet set = DefaultEars();
  set.room.early_level_db = set.room.late_level_db = kRoomOffDb;
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const Ears ears = Impulse(set, plane, 1);
    const auto left = set.response(static_cast<int>(plane), 0);
    const auto right = set.response(static_cast<int>(plane), 1);
    EXPECT_NEAR(Delay_us(ears.left, ears.right), Delay_us(left, right), 1.0) << plane;
    for (const double centre_hz : kOctaves_hz) {
      EXPECT_NEAR(LevelDifference_db(ears.left, ears.right, centre_hz),
                  LevelDifference_db(left, right, centre_hz), 0.01)
          << plane << ", " << centre_hz;
    }
  }
}

// With the room, the cues are blurred but stay.
TEST(Localisation, RoomKeepsTheCues) {
  const HrirSet& set = DefaultEars();
  ASSERT_GT(set.room.early_level_db, kRoomOffDb);
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const Ears ears = Impulse(set, plane, 12);
    const auto left = set.response(static_cast<int>(plane), 0);
    const auto right = set.response(static_cast<int>(plane), 1);
    EXPECT_NEAR(Delay_us(ears.left, ears.right), Delay_us(left, right), 30.0) << plane;
    for (const double centre_hz : kOctaves_hz) {
      const double dry_db = LevelDifference_db(left, right, centre_hz);
      EXPECT_NEAR(LevelDifference_db(ears.left, ears.right, centre_hz), dry_db,
                  1.5 + 0.1 * std::abs(dry_db))
          << plane << ", " << centre_hz;
    }
  }
}

// The cross-correlation of a band-limited impulse with what the nearer ear hears peaks
// at its place.
TEST(Localisation, DefaultEarsAddNoLatency) {
  constexpr int kCentre = 64;
  std::vector<float> impulse;
  for (int n = -kCentre; n <= kCentre; ++n) {  // 100 Hz .. 16 kHz
    const double t = std::numbers::pi * n / 48000.0;
    const auto low_pass = [&](double freq_hz) {
      return n == 0 ? 2 * freq_hz / 48000 : std::sin(2 * freq_hz * t) / (std::numbers::pi * n);
    };
    const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * n / (kCentre + 1));
    impulse.push_back(static_cast<float>(window * (low_pass(16000) - low_pass(100))));
  }
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const VirtualizerInstance instance(DefaultEars());
    std::vector<float> in(kPlanes * kBlock);
    std::copy(impulse.begin(), impulse.end(), &in[plane * kBlock + 200]);
    Ears ears;
    instance.Process(in, &ears, 2);
    const auto& nearer = DefaultEars().directions[plane].azimuth_deg < 0 ? ears.right : ears.left;
    constexpr std::size_t kStart = 200, kFarthest = 500;
    double peak = 0.0;
    std::size_t peak_at = 0;
    for (std::size_t at = 0; at <= kStart + kFarthest; ++at) {
      double sum = 0.0;
      for (std::size_t n = 0; n < impulse.size(); ++n) {
        sum += double{impulse[n]} * double{nearer[at + n]};
      }
      if (std::abs(sum) > peak) {
        peak = std::abs(sum);
        peak_at = at;
      }
    }
    EXPECT_EQ(peak_at, kStart) << plane;
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
