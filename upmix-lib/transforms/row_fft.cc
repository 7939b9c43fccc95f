#include "upmix-lib/transforms/row_fft.h"

#include <cmath>

#include "platform/math_constants.h"

namespace kelda::upmix_lib {
namespace {

// exp(-2 pi i index / size), rounded once.
void AppendTwiddle(int index, int size, std::vector<float>* table) {
  const double angle = -2.0 * kPi * index / size;
  table->push_back(static_cast<float>(std::cos(angle)));
  table->push_back(static_cast<float>(std::sin(angle)));
}

// Radix 4 wherever it fits; radix 8 would need more registers than 8-lane machines have
// and measures slower.
std::vector<int> Radices(int size) {
  std::vector<int> radices;
  for (const int radix : {5, 3}) {
    for (; size % radix == 0; size /= radix) {
      radices.push_back(radix);
    }
  }
  int twos = 0;
  for (; size > 1; size /= 2) {
    ++twos;
  }
  if (twos % 2 == 1) {
    radices.push_back(2);
  }
  for (; twos > 1; twos -= 2) {
    radices.push_back(4);
  }
  return radices;
}

}  // namespace

RowFft::RowFft(int rows) : rows_(rows), half_(rows / 2) {
  int length = half_;
  int stride = 1;
  for (const int radix : Radices(half_)) {
    const int groups = length / radix;
    passes_.push_back({radix, groups, stride, pass_twiddles_.size()});
    for (int p = 0; p < groups && groups > 1; ++p) {
      for (int k = 1; k < radix; ++k) {
        AppendTwiddle(p * k, length, &pass_twiddles_);
      }
    }
    length = groups;
    stride *= radix;
  }
  for (int k = 0; 2 * k <= half_; ++k) {
    AppendTwiddle(k, rows_, &real_twiddles_);
  }
}

}  // namespace kelda::upmix_lib
