// Double vectors, for recursive filters: two channels of two sections.
#ifndef KELDA_UPMIX_LIB_FILTERS_DOUBLE_VEC_H_
#define KELDA_UPMIX_LIB_FILTERS_DOUBLE_VEC_H_

#include <cstdint>

#include "upmix-lib/base/input_guard.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::upmix_lib {

typedef double DoubleVec2 __attribute__((vector_size(16)));
typedef double DoubleVec4 __attribute__((vector_size(32)));
typedef int64_t DoubleMask4 __attribute__((vector_size(32)));

// The coefficients of four sections, one in each lane.
//
// A section is the transposed direct form II with the output eliminated from the update
// of its state, so that a frame waits for one multiply-add of the frame before, not two:
//
//   y = b0 x + s1,  s1' = c1 x - a1 s1 + s2,  s2' = c2 x - a2 s1
//   where c1 = b1 - a1 b0 and c2 = b2 - a2 b0
struct FourBiquads {
  DoubleVec4 b0, c1, c2, a1, a2;

  void Set(int lane, const Biquad& biquad) {
    b0[lane] = biquad.b0;
    c1[lane] = biquad.b1 - biquad.a1 * biquad.b0;
    c2[lane] = biquad.b2 - biquad.a2 * biquad.b0;
    a1[lane] = biquad.a1;
    a2[lane] = biquad.a2;
  }
};

// Ends the decay of sections whose state has become tiny, before it turns denormal: once
// per block. Both states of a section together; dropping one alone would excite it again.
inline void DropTiny(DoubleVec4& s1, DoubleVec4& s2) {
  const DoubleVec4 tiny = DoubleVec4{} + kTinyState;
  const DoubleMask4 sounds = (s1 > tiny) | (s1 < -tiny) | (s2 > tiny) | (s2 < -tiny);
  s1 = sounds ? s1 : DoubleVec4{};
  s2 = sounds ? s2 : DoubleVec4{};
}

// Whether every lane is 0.
inline bool IsZero(const DoubleVec4& v) {
  return v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0 && v[3] == 0.0;
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILTERS_DOUBLE_VEC_H_
