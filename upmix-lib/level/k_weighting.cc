#include "upmix-lib/level/k_weighting.h"

namespace kelda::upmix_lib {
namespace {

// BS.1770-4, tables 1 and 2.
constexpr Biquad kShelf = {1.53512485958697, -2.69169618940638, 1.19839281085285, -1.69065929318241,
                           0.73248077421585};
constexpr Biquad kHighPass = {1.0, -2.0, 1.0, -1.99004745483398, 0.99007225036621};

constexpr DoubleVec2 kLimit = {KWeighting::kLoudestSample, KWeighting::kLoudestSample};

}  // namespace

KWeighting::KWeighting() {
  for (int channel = 0; channel < 2; ++channel) {
    sections_.Set(channel, kShelf);
    sections_.Set(channel + 2, kHighPass);
  }
}

double KWeighting::Energy(const float* frames, std::size_t count) {
  const FourBiquads& p = sections_;
  DoubleVec4 s1 = s1_, s2 = s2_, y = y_, squares{};
  for (std::size_t i = 0; i < count; ++i) {
    DoubleVec2 in = {frames[2 * i], frames[2 * i + 1]};
    in = in > kLimit ? kLimit : in;
    in = in < -kLimit ? -kLimit : in;
    const DoubleVec4 x =
        __builtin_shufflevector(__builtin_shufflevector(in, in, 0, 1, 0, 1), y, 0, 1, 4, 5);
    y = p.b0 * x + s1;
    const DoubleVec4 pushed = p.c1 * x + s2;
    s2 = p.c2 * x - p.a2 * s1;
    s1 = pushed - p.a1 * s1;
    squares += y * y;
  }
  DropTiny(s1, s2);
  s1_ = s1;
  s2_ = s2;
  y_ = y;
  return squares[2] + squares[3];
}

}  // namespace kelda::upmix_lib
