#include "upmix-lib/input_guard.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace kelda::upmix_lib {
namespace {

TEST(InputGuard, KeepsSoundAndSilencesTheRest) {
  using Limits = std::numeric_limits<float>;
  const std::array<float, 11> in = {0.5f,
                                    -0.0f,
                                    Limits::quiet_NaN(),
                                    -Limits::quiet_NaN(),
                                    Limits::infinity(),
                                    -Limits::infinity(),
                                    kMaxSample,
                                    -2 * kMaxSample,
                                    Limits::denorm_min(),
                                    -Limits::min() / 2,
                                    -Limits::min()};
  const std::array<float, 11> expected = {0.5f, 0, 0, 0, 0, 0, kMaxSample, 0, 0, 0, -Limits::min()};
  std::array<float, 11> out{};
  GuardSamples(in.data(), out.data(), in.size());
  EXPECT_EQ(out, expected);
}

TEST(InputGuard, TinyStateEndsBeforeItTurnsDenormal) {
  EXPECT_EQ(DropTiny(1e-16), 0.0);
  EXPECT_EQ(DropTiny(-1e-16f), 0.0f);
  EXPECT_EQ(DropTiny(1e-14), 1e-14);
}

}  // namespace
}  // namespace kelda::upmix_lib
