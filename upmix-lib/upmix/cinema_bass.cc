#include "upmix-lib/upmix/cinema_bass.h"

#include "platform/math_constants.h"
#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/filters/double_vec.h"

namespace kelda::upmix_lib {

BassSplitter::BassSplitter(float crossover_hz) {
  constexpr float kButterworth = static_cast<float>(kSqrt2) / 2.0f;
  const Biquad high = DesignBiquad({BandType::kHighPass, crossover_hz, 0.0f, kButterworth});
  const Biquad low = DesignBiquad({BandType::kLowPass, crossover_hz, 0.0f, kButterworth});
  b0_ = Lanes{high.b0, high.b0, low.b0, low.b0};
  b1_ = Lanes{high.b1, high.b1, low.b1, low.b1};
  b2_ = Lanes{high.b2, high.b2, low.b2, low.b2};
  a1_ = Lanes{high.a1, high.a1, low.a1, low.a1};
  a2_ = Lanes{high.a2, high.a2, low.a2, low.a2};
}

void BassSplitter::Clear() {
  for (auto& section : state_) {
    section[0] = section[1] = Lanes{};
  }
}

bool BassSplitter::at_rest() const {
  return IsZero(state_[0][0]) && IsZero(state_[0][1]) && IsZero(state_[1][0]) &&
         IsZero(state_[1][1]);
}

void BassSplitter::Process(const float* left, const float* right, int frames,
                           float* const (&high)[2], float* const (&low)[2]) {
  // Transposed direct form II.
  Lanes s00 = state_[0][0], s01 = state_[0][1], s10 = state_[1][0], s11 = state_[1][1];
  for (int n = 0; n < frames; ++n) {
    const double l = left[n], r = right[n];
    const Lanes in = {l, r, l, r};
    const Lanes middle = b0_ * in + s00;
    s00 = b1_ * in - a1_ * middle + s01;
    s01 = b2_ * in - a2_ * middle;
    const Lanes out = b0_ * middle + s10;
    s10 = b1_ * middle - a1_ * out + s11;
    s11 = b2_ * middle - a2_ * out;
    high[0][n] = static_cast<float>(out[0]);
    high[1][n] = static_cast<float>(out[1]);
    low[0][n] = static_cast<float>(out[2]);
    low[1][n] = static_cast<float>(out[3]);
  }
  state_[0][0] = s00;
  state_[0][1] = s01;
  state_[1][0] = s10;
  state_[1][1] = s11;
  for (auto& section : state_) {
    for (Lanes& delayed : section) {
      for (int lane = 0; lane < 4; ++lane) {
        delayed[lane] = DropTiny(delayed[lane]);
      }
    }
  }
}

}  // namespace kelda::upmix_lib
