#include "upmix-lib/transforms/fft.h"

#include <algorithm>
#include <cmath>

#include "platform/math_constants.h"

namespace kelda::upmix_lib {
namespace {

template <int kLaneCount>
struct VecOf;
template <>
struct VecOf<1> {
  using Type = float;
};
template <>
struct VecOf<4> {
  using Type = Vec4;
};
#if defined(__AVX__)
template <>
struct VecOf<8> {
  using Type = Vec8;
};
#endif

// Whether whole blocks of bins leave just the last bin of the row transform, size/lanes/2. It is
// real, so it does without a block.
bool LeavesLastBin(int size, int lanes) { return lanes > 1 && size / lanes / 2 % lanes == 0; }

// The bins 0 .. size/lanes/2 of the row transform, in blocks of `lanes`; the last block
// is moved back to end with the last bin, so that every block is whole, unless LeavesLastBin.
int BlockCount(int size, int lanes) {
  return (size / lanes / 2 + (LeavesLastBin(size, lanes) ? 0 : lanes)) / lanes;
}

int BlockStart(int size, int lanes, int block) {
  return std::min(block * lanes, size / lanes / 2 + 1 - lanes);
}

// The widest vectors for which the row transform has an even size and a whole block.
int ChooseLanes(int size) {
  for (int lanes = kLanes; lanes >= 4; lanes /= 2) {
    if (size % (2 * lanes) == 0 && size / lanes / 2 + 1 >= lanes) {
      return lanes;
    }
  }
  return 1;
}

// Calls `body` with the vector of `lanes` lanes (zero) to choose its type.
template <typename Body>
void WithVec(int lanes, Body body) {
  switch (lanes) {
#if defined(__AVX__)
    case 8:
      body(VecOf<8>());
      break;
#endif
    case 4:
      body(VecOf<4>());
      break;
    default:
      body(VecOf<1>());
      break;
  }
}

}  // namespace

bool RealFft::IsSupported(int size) {
  if (size < kMinSize || size > kMaxSize || size % 2 != 0) {
    return false;
  }
  for (const int factor : {2, 3, 5}) {
    while (size % factor == 0) {
      size /= factor;
    }
  }
  return size == 1;
}

RealFft::RealFft(int size)
    : size_(size),
      lanes_(ChooseLanes(size)),
      row_fft_(size / lanes_),
      lane_twiddles_(
          static_cast<std::size_t>(BlockCount(size, lanes_) * (lanes_ - 1) * 2 * lanes_)),
      last_bin_twiddles_(static_cast<std::size_t>(2 * lanes_ * lanes_)) {
  // For M/2 = size / lanes / 2, over the lanes l: X[M/2 + M j] is the sum of y_l exp(-i a) with
  // a = pi l (2 j + 1) / lanes; back, y_l is twice the sum over j of X.re cos a - X.im sin a.
  for (int l = 0; l < lanes_; ++l) {
    float* join = last_bin_twiddles_.data() + l * lanes_;
    float* split = last_bin_twiddles_.data() + lanes_ * lanes_ + l;
    for (int j = 0; j < lanes_ / 2; ++j) {
      const double angle = kPi * l * (2 * j + 1) / lanes_;
      // A quarter of a turn has no cosine: the 6e-17 of rounding would make denormal products.
      join[j] =
          2 * l * (2 * j + 1) % (2 * lanes_) == lanes_ ? 0.0f : static_cast<float>(std::cos(angle));
      join[lanes_ / 2 + j] = static_cast<float>(-std::sin(angle));
      split[j * lanes_] = 2.0f * join[j];
      split[(lanes_ / 2 + j) * lanes_] = 2.0f * join[lanes_ / 2 + j];
    }
  }
  float* out = lane_twiddles_.data();
  for (int block = 0; block < BlockCount(size_, lanes_); ++block) {
    for (int l = 1; l < lanes_; ++l, out += 2 * lanes_) {
      for (int i = 0; i < lanes_; ++i) {
        const int k = BlockStart(size_, lanes_, block) + i;
        const double angle = -2.0 * kPi * k * l / size_;
        out[i] = static_cast<float>(std::cos(angle));
        out[lanes_ + i] = static_cast<float>(std::sin(angle));
      }
    }
  }
}

// With y_l the spectrum of lane l and M = size / L, X[k + M j] is the L-point transform
// over l of y_l[k] exp(-2 pi i k l / size). k runs to M/2 only: the other bins are the
// upper half of the j, X[size - b] = X*[b].
template <typename V>
void RealFft::JoinLanes(const float* rows, float* re, float* im) const {
  constexpr int kCount = kLanesOf<V>;
  const int row_count = size_ / kCount;
  const float* twiddles = lane_twiddles_.data();
  for (int block = 0; block < BlockCount(size_, kCount); ++block) {
    const int k = BlockStart(size_, kCount, block);
    const float* from = rows + std::ptrdiff_t{k} * 2 * kCount;
    V lane_re[kCount], lane_im[kCount];
    LoadTransposed(from, 2 * kCount, lane_re);
    LoadTransposed(from + kCount, 2 * kCount, lane_im);
    Complex<V> x[kCount];
    x[0] = {lane_re[0], lane_im[0]};
    for (int l = 1; l < kCount; ++l, twiddles += 2 * kCount) {
      x[l] = Twiddle<false>(Complex<V>{lane_re[l], lane_im[l]}, Load<V>(twiddles),
                            Load<V>(twiddles + kCount));
    }
    Dft<false>(x);
    for (int j = 0; j < (kCount + 1) / 2; ++j) {
      Store(re + row_count * j + k, x[j].re);
      Store(im + row_count * j + k, x[j].im);
    }
    for (int j = (kCount + 1) / 2; j < kCount; ++j) {
      const int mirrored = size_ - row_count * j - k - (kCount - 1);
      Store(re + mirrored, Reverse(x[j].re));
      Store(im + mirrored, Reverse(-x[j].im));
    }
  }
  if (LeavesLastBin(size_, kCount)) {
    const float* last = rows + std::ptrdiff_t{row_count / 2} * 2 * kCount;
    V bins{};  // real parts, imaginary parts
    for (int l = 0; l < kCount; ++l) {
      bins += last[l] * Load<V>(last_bin_twiddles_.data() + l * kCount);
    }
    float parts[kCount];
    Store(parts, bins);
    for (int j = 0; j < kCount / 2; ++j) {
      re[row_count / 2 + row_count * j] = parts[j];
      im[row_count / 2 + row_count * j] = parts[kCount / 2 + j];
    }
  }
}

template <typename V>
void RealFft::SplitLanes(const float* re, const float* im, float* rows) const {
  constexpr int kCount = kLanesOf<V>;
  const int row_count = size_ / kCount;
  const float* twiddles = lane_twiddles_.data();
  for (int block = 0; block < BlockCount(size_, kCount); ++block) {
    const int k = BlockStart(size_, kCount, block);
    Complex<V> x[kCount];
    for (int j = 0; j < (kCount + 1) / 2; ++j) {
      x[j] = {Load<V>(re + row_count * j + k), Load<V>(im + row_count * j + k)};
    }
    for (int j = (kCount + 1) / 2; j < kCount; ++j) {
      const int mirrored = size_ - row_count * j - k - (kCount - 1);
      x[j] = {Reverse(Load<V>(re + mirrored)), -Reverse(Load<V>(im + mirrored))};
    }
    Dft<true>(x);
    V lane_re[kCount], lane_im[kCount];
    lane_re[0] = x[0].re;
    lane_im[0] = x[0].im;
    for (int l = 1; l < kCount; ++l, twiddles += 2 * kCount) {
      const Complex<V> lane = Twiddle<true>(x[l], Load<V>(twiddles), Load<V>(twiddles + kCount));
      lane_re[l] = lane.re;
      lane_im[l] = lane.im;
    }
    float* to = rows + std::ptrdiff_t{k} * 2 * kCount;
    StoreTransposed(lane_re, to, 2 * kCount);
    StoreTransposed(lane_im, to + kCount, 2 * kCount);
  }
  if (LeavesLastBin(size_, kCount)) {
    const float* split = last_bin_twiddles_.data() + kCount * kCount;
    V last{};
    for (int j = 0; j < kCount / 2; ++j, split += kCount) {
      last += re[row_count / 2 + row_count * j] * Load<V>(split) +
              im[row_count / 2 + row_count * j] * Load<V>(split + kCount / 2 * kCount);
    }
    Store(rows + std::ptrdiff_t{row_count / 2} * 2 * kCount, last);
  }
}

void RealFft::Forward(const float* in, float* re, float* im, float* scratch) const {
  WithVec(lanes_, [&](auto vec) {
    using V = typename decltype(vec)::Type;
    float* rows = scratch + size_;
    row_fft_.Forward<V>(in, rows, scratch);
    JoinLanes<V>(rows, re, im);
  });
}

void RealFft::Inverse(const float* re, const float* im, float* out, float* scratch) const {
  WithVec(lanes_, [&](auto vec) {
    using V = typename decltype(vec)::Type;
    float* rows = scratch + size_;
    SplitLanes<V>(re, im, rows);
    row_fft_.Inverse<V>(rows, out, scratch);
  });
}

}  // namespace kelda::upmix_lib
