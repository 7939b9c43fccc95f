// Fourier transforms of real signals, single precision, vectorised.
//
// Forward: X[k] = sum over n of x[n] exp(-2 pi i k n / size), k = 0 .. size/2.
// Inverse: out[n] = size * x[n] for the spectrum X of x. Neither scales: put 1/size
// into a window or a filter, where it costs nothing.
//
// Sizes have no prime factor but 2, 3 and 5. Tables are built by the constructors
// (they allocate: control thread) and never change, so any number of instances and
// threads share one transform; SharedRealFft() hands out one per size that lives as long
// as the library. Forward and Inverse (audio) work in the caller's scratch memory. Any
// float alignment works, kSimdAlignmentBytes is fastest.
#ifndef KELDA_UPMIX_LIB_TRANSFORMS_FFT_H_
#define KELDA_UPMIX_LIB_TRANSFORMS_FFT_H_

#include "platform/nonblocking.h"
#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/base/simd.h"
#include "upmix-lib/transforms/row_fft.h"

namespace kelda::upmix_lib {

// Spectra are split: an array of bins() real parts and one of bins() imaginary parts,
// natural order, with the bins 0 and size/2 included (their imaginary parts are 0 after
// Forward and ignored by Inverse).
//
// The signal is read as rows of L lanes (row m holds x[mL .. mL+L-1]), each lane is
// transformed as one of L real signals of size/L samples, and a last radix-L step
// turns the L spectra into the one (the "four-step" decomposition: Bailey, "FFTs in
// external or hierarchical memory", 1990):
//
//   size samples --> size/L rows --RowFft--> bins of L lanes --twiddle, transpose,
//                                             L-point transform--> size/2+1 bins
class RealFft {
 public:
  static constexpr int kMinSize = 16, kMaxSize = 8192;

  // Even, within kMinSize .. kMaxSize, of the form 2^a 3^b 5^c.
  static bool IsSupported(int size);

  // `size` must be supported.
  explicit RealFft(int size);

  int size() const { return size_; }
  int bins() const { return size_ / 2 + 1; }
  // Floats of scratch memory for one call.
  static constexpr int ScratchFloats(int size) { return 2 * size + 2 * kLanes; }
  int scratch_floats() const { return ScratchFloats(size_); }

  // `in`: size() samples. `re`, `im`: bins() floats each; they may overlap `in`, not
  // each other nor `scratch`.
  void Forward(const float* in, float* re, float* im, float* scratch) const KELDA_NONBLOCKING;

  // `out`: size() samples; may overlap `re` and `im`, not `scratch`.
  void Inverse(const float* re, const float* im, float* out,
               float* scratch) const KELDA_NONBLOCKING;

 private:
  template <typename V>
  void JoinLanes(const float* rows, float* re, float* im) const;
  template <typename V>
  void SplitLanes(const float* re, const float* im, float* rows) const;

  int size_;
  int lanes_;
  RowFft row_fft_;
  AlignedBuffer lane_twiddles_;      // Per block of lanes_ bins: lanes_-1 complex vectors.
  AlignedBuffer last_bin_twiddles_;  // Per lane, then per real and imaginary part: a vector.
};

// The library's one transform of a size. The first call builds it (control thread;
// safe from several threads at once), later calls return the same object.
template <int kSize>
const RealFft& SharedRealFft() {
  // Never freed: when the process ends, another thread may be inside one.
  static const RealFft& fft = *new RealFft(kSize);
  return fft;
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_TRANSFORMS_FFT_H_
