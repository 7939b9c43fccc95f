#include "pipeline/matrix_conversion.h"

#include <algorithm>
#include <cstdlib>

namespace kelda {
namespace {

void AbortUnlessIndexable(int frames, int channels) {
  int samples;
  if (__builtin_mul_overflow(frames, channels, &samples)) std::abort();
}

// Stereo is what the chain runs on: with both strides known the compiler turns
// these loops into vector loads, shuffles and stores.
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

}  // namespace

void MatrixConversion::ToPlanes(float* planar, int plane_frames, const float* interleaved,
                                int frames, int channels, const int* table) {
  if (frames < 1 || channels < 1) return;
  AbortUnlessIndexable(std::max(frames, plane_frames), channels);
  if (channels == 2 && table == nullptr) {
    StereoToPlanar(planar, planar + plane_frames, interleaved, frames);
    return;
  }
  for (int c = 0; c < channels; ++c) {
    float* __restrict plane = planar + (table != nullptr ? table[c] : c) * plane_frames;
    const float* __restrict slot = interleaved + c;
    for (int f = 0; f < frames; ++f) plane[f] = slot[f * channels];
  }
}

void MatrixConversion::ToInterleave(float* interleaved, const float* planar, int frames,
                                    int channels, const int* table) {
  if (frames < 1 || channels < 1) return;
  AbortUnlessIndexable(frames, channels);
  if (channels == 2 && table == nullptr) {
    StereoToInterleave(interleaved, planar, planar + frames, frames);
    return;
  }
  for (int c = 0; c < channels; ++c) {
    const float* __restrict plane = planar + c * frames;
    float* __restrict slot = interleaved + (table != nullptr ? table[c] : c);
    for (int f = 0; f < frames; ++f) slot[f * channels] = plane[f];
  }
}

}  // namespace kelda
