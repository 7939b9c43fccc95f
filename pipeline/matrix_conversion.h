#ifndef KELDA_PIPELINE_MATRIX_CONVERSION_H_
#define KELDA_PIPELINE_MATRIX_CONVERSION_H_

#include "platform/nonblocking.h"

namespace kelda {

// Conversion between the two layouts of a block of 32-bit float audio:
//
//   interleaved, index f * channels + c     planar, index c * frames + f
//     L0 R0 L1 R1 L2 R2 ...                   L0 L1 L2 ... R0 R1 R2 ...
//
// `table` reorders channels on the way: one entry per channel, or null for the
// identity. Entries are not checked; planes or slots that no entry names are left
// untouched. Source and destination must not overlap. Nothing happens when
// `frames` or `channels` is below 1; a block whose sample count does not fit an
// int aborts. Any thread; no allocation.
//
//   MatrixConversion::ToPlanar(planar, interleaved, 1024, 2, nullptr);
class MatrixConversion {
 public:
  // Channel c of the interleaved block becomes plane table[c].
  static void ToPlanar(float* planar, const float* interleaved, int frames, int channels,
                       const int* table) {
    ToPlanes(planar, frames, interleaved, frames, channels, table);
  }
  // The same into a part of longer planes, which are `plane_frames` apart; `planar` is
  // the place of the first frame in plane 0.
  static void ToPlanes(float* planar, int plane_frames, const float* interleaved, int frames,
                       int channels, const int* table) KELDA_NONBLOCKING;
  // Plane c becomes channel table[c] of the interleaved block.
  static void ToInterleave(float* interleaved, const float* planar, int frames, int channels,
                           const int* table) KELDA_NONBLOCKING;
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_MATRIX_CONVERSION_H_
