#include "pipeline/matrix_conversion.h"

#include <algorithm>
#include <cstdlib>

namespace kelda {
namespace {

// An index is stride * count + offset.
void AbortUnlessIndexable(int stride, int count, int offset) {
  int index;
  if (__builtin_mul_overflow(stride, count, &index) ||
      __builtin_add_overflow(index, offset, &index)) {
    std::abort();
  }
}

// The chain runs on stereo: with both strides known the compiler turns these loops into
// vector loads, shuffles and stores.
void StereoToPlanar(float* __restrict left, float* __restrict right,
                    const float* __restrict interleaved, int frames) {
  for (int f = 0; f < frames; ++f) {
    left[f] = interleaved[2 * f];
    right[f] = interleaved[2 * f + 1];
  }
}

void StereoToInterleave(float* __restrict interleaved, const float* __restrict left,
                        const float* __restrict right, int frames) {
  for (int f = 0; f < frames; ++f) {
    interleaved[2 * f] = left[f];
    interleaved[2 * f + 1] = right[f];
  }
}

// Any other layout is moved in squares of four channels by four frames: each takes four
// vector loads, a transposition and four vector stores. The last square of a row or a
// column overlaps the one before where four do not divide the count.
typedef float Vec4 __attribute__((vector_size(16)));
typedef Vec4 Unaligned __attribute__((aligned(alignof(float)), may_alias));

constexpr int kSquare = 4;

// Transposes the square whose rows start at from[0] ... from[3] into rows at to[0] ...
// to[3]. These are written in order: if two are at the same place, the later one stays.
inline void TransposeSquare(const float* const (&from)[kSquare], float* const (&to)[kSquare]) {
  Vec4 rows[kSquare];
  for (int i = 0; i < kSquare; ++i) {
    rows[i] = *reinterpret_cast<const Unaligned*>(from[i]);
  }
  const Vec4 low01 = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
  const Vec4 high01 = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
  const Vec4 low23 = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
  const Vec4 high23 = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
  rows[0] = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
  rows[1] = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
  rows[2] = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
  rows[3] = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
  for (int i = 0; i < kSquare; ++i) {
    *reinterpret_cast<Unaligned*>(to[i]) = rows[i];
  }
}

// Calls square(c, f) for the first channel and the first frame of every square.
template <typename F>
inline void ForEachSquare(int frames, int channels, F&& square) {
  for (int c = 0; c < channels; c += kSquare) {
    const int channel = std::min(c, channels - kSquare);
    int f = 0;
    for (; f + kSquare <= frames; f += kSquare) {
      square(channel, f);
    }
    if (f < frames) {
      square(channel, frames - kSquare);
    }
  }
}

// More channels than any layout has; blocks with more are converted sample by sample.
constexpr int kMostChannels = 32;

// Stores the plane of each slot: the inverse of `table`, which is null for the identity.
// Returns false unless every slot is named exactly once.
bool PlanesOfSlots(const int* table, int channels, int (&planes)[kMostChannels]) {
  if (channels > kMostChannels) {
    return false;
  }
  std::fill_n(planes, kMostChannels, -1);
  for (int c = 0; c < channels; ++c) {
    const int slot = table != nullptr ? table[c] : c;
    if (slot < 0 || slot >= channels || planes[slot] >= 0) {
      return false;
    }
    planes[slot] = c;
  }
  return true;
}

}  // namespace

void MatrixConversion::ToPlanes(float* planar, int plane_frames, const float* interleaved,
                                int frames, int channels, const int* table) {
  if (frames < 1 || channels < 1) {
    return;
  }
  AbortUnlessIndexable(std::max(frames, plane_frames), channels, 0);
  for (int c = 0; table != nullptr && c < channels; ++c) {
    AbortUnlessIndexable(plane_frames, table[c], frames - 1);
  }
  if (channels == 2 && table == nullptr) {
    StereoToPlanar(planar, planar + plane_frames, interleaved, frames);
    return;
  }
  if (channels >= kSquare && frames >= kSquare) {
    ForEachSquare(frames, channels, [=](int c, int f) {
      const float* from[kSquare];
      float* to[kSquare];
      for (int i = 0; i < kSquare; ++i) {
        from[i] = interleaved + (f + i) * channels + c;
        to[i] = planar + (table != nullptr ? table[c + i] : c + i) * plane_frames + f;
      }
      TransposeSquare(from, to);
    });
    return;
  }
  for (int c = 0; c < channels; ++c) {
    float* __restrict plane = planar + (table != nullptr ? table[c] : c) * plane_frames;
    const float* __restrict slot = interleaved + c;
    for (int f = 0; f < frames; ++f) {
      plane[f] = slot[f * channels];
    }
  }
}

void MatrixConversion::ToInterleave(float* interleaved, const float* planar, int frames,
                                    int channels, const int* table) {
  if (frames < 1 || channels < 1) {
    return;
  }
  AbortUnlessIndexable(frames, channels, 0);
  for (int c = 0; table != nullptr && c < channels; ++c) {
    AbortUnlessIndexable(channels, frames - 1, table[c]);
  }
  if (channels == 2 && table == nullptr) {
    StereoToInterleave(interleaved, planar, planar + frames, frames);
    return;
  }
  int planes[kMostChannels];
  if (channels >= kSquare && frames >= kSquare && PlanesOfSlots(table, channels, planes)) {
    ForEachSquare(frames, channels, [&](int c, int f) {
      const float* from[kSquare];
      float* to[kSquare];
      for (int i = 0; i < kSquare; ++i) {
        from[i] = planar + planes[c + i] * frames + f;
        to[i] = interleaved + (f + i) * channels + c;
      }
      TransposeSquare(from, to);
    });
    return;
  }
  for (int c = 0; c < channels; ++c) {
    const float* __restrict plane = planar + c * frames;
    float* __restrict slot = interleaved + (table != nullptr ? table[c] : c);
    for (int f = 0; f < frames; ++f) {
      slot[f * channels] = plane[f];
    }
  }
}

}  // namespace kelda
