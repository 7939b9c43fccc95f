#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <span>

#include "upmix-lib/room.h"

namespace kelda::upmix_lib {
namespace {

// Ears that hear every plane alike and at once.
HrirSet UnitHrirs() {
  HrirSet set;
  for (std::size_t p = 0; p < kPlanes; ++p) set.directions[p] = kPlaneDirections[p];
  set.taps = 1;
  set.responses.assign(kPlanes * kEars, 1.0f);
  return set;
}

double GainDb(std::span<const float> taps, double freq_hz) {
  std::complex<double> sum = 0;
  for (std::size_t n = 0; n < taps.size(); ++n) {
    const double angle = -2.0 * std::numbers::pi * freq_hz * static_cast<double>(n) / kSampleRateHz;
    sum += static_cast<double>(taps[n]) * std::polar(1.0, angle);
  }
  return 20.0 * std::log10(std::abs(sum));
}

TEST(Room, StaysOutOfTheBass) {
  for (const float size_m : {3.0f, 5.0f, 12.0f}) {
    RoomParameters room{.early_level_db = -12.0f,
                        .late_level_db = -18.0f,
                        .decay_s = 0.3f,
                        .size_m = size_m,
                        .damping_hz = 5000.0f,
                        .reserved = {}};
    const RoomResponses made = MakeRoomResponses(room, UnitHrirs());
    const auto taps = static_cast<std::size_t>(made.taps);
    ASSERT_GT(taps, 0u);
    double energy = 0.0;
    for (const float tap : made.responses) energy += double{tap} * double{tap};
    // The two ears' share of the direct sound's energy, as asked for.
    EXPECT_NEAR(10.0 * std::log10(energy / kRoomSides / kEars),
                10.0 * std::log10(std::pow(10.0, -1.2) + std::pow(10.0, -1.8)), 1.0);
    for (std::size_t side_and_ear = 0; side_and_ear < kRoomSides * kEars; ++side_and_ear) {
      const std::span response(&made.responses[side_and_ear * taps], taps);
      // Beside the direct sound's 0 dB: a tenth of it at 50 Hz.
      for (const double freq_hz : {10.0, 30.0, 50.0}) {
        EXPECT_LT(GainDb(response, freq_hz), -20.0) << freq_hz << " Hz, " << size_m << " m";
      }
    }
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
