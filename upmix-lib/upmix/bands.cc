#include "upmix-lib/upmix/bands.h"

#include <algorithm>
#include <cmath>

#include "upmix-lib/base/audio_format.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kSingleBins = 16;     // bands of one bin
constexpr int kBandsPerOctave = 8;  // after them
constexpr int kWidest = 16;         // bins

// Calls f.operator()<width>(first band, first bin) for each octave of bands.
template <typename F>
void ForEachOctave(F&& f) {
  f.template operator()<2>(16, 16);
  f.template operator()<4>(24, 32);
  f.template operator()<8>(32, 64);
  f.template operator()<16>(40, 128);
}

// Fills the kWidth bins of a band on straight lines from the centre of the band below,
// kBelowWidth bins wide, to its own and on to that of the band above.
template <int kWidth, int kBelowWidth, int kAboveWidth>
void SpreadBand(float below, float own, float above, float* bins) {
  constexpr float kPerBinBelow = 2.0f / (kWidth + kBelowWidth);
  constexpr float kPerBinAbove = 2.0f / (kWidth + kAboveWidth);
  constexpr int kHalf = kWidth / 2;
  const float rise = kPerBinBelow * (own - below), fall = kPerBinAbove * (above - own);
  if constexpr (kHalf % 4 == 0) {
    const Vec4 upwards = {0.5f, 1.5f, 2.5f, 3.5f};
    for (int j = 0; j < kHalf; j += 4) {
      const Vec4 offset = upwards + static_cast<float>(j);
      Store<Vec4>(bins + j, own + rise * (offset - static_cast<float>(kHalf)));
      Store<Vec4>(bins + kHalf + j, own + fall * offset);
    }
  } else {
    for (int j = 0; j < kHalf; ++j) {
      bins[j] = own + rise * (static_cast<float>(j - kHalf) + 0.5f);
      bins[kHalf + j] = own + fall * (static_cast<float>(j) + 0.5f);
    }
  }
}

}  // namespace

void SumBins(const float* bins, BandValues& bands) {
  std::copy_n(bins, kSingleBins, bands.value);
  ForEachOctave([&]<int kWidth>(int band, int bin) {
    for (int b = 0; b < kBandsPerOctave; ++b) {
      float sum = 0.0f;
      for (int j = 0; j < kWidth; ++j) {
        sum += bins[bin + b * kWidth + j];
      }
      bands[band + b] = sum;
    }
  });
}

void SpreadBands(const BandValues& bands, float* bins) {
  std::copy_n(bands.value, kSingleBins, bins);
  ForEachOctave([&]<int kWidth>(int band, int bin) {
    constexpr bool kIsLast = kWidth == kWidest;
    const float* v = bands.value + band;
    float* to = bins + bin;
    SpreadBand<kWidth, kWidth / 2, kWidth>(v[-1], v[0], v[1], to);
    for (int b = 1; b + 1 < kBandsPerOctave; ++b) {
      SpreadBand<kWidth, kWidth, kWidth>(v[b - 1], v[b], v[b + 1], to + b * kWidth);
    }
    constexpr int kTop = kBandsPerOctave - 1;
    const float above = kIsLast ? v[kTop] : v[kTop + 1];
    SpreadBand<kWidth, kWidth, kIsLast ? kWidth : 2 * kWidth>(v[kTop - 1], v[kTop], above,
                                                              to + kTop * kWidth);
  });
  std::fill(bins + kShortBins - 1, bins + kPaddedShortBins, bands[kBands - 1]);
}

void SmoothBands(BandValues& bands) {
  BandValues smooth;
  for (int b = 1; b + 1 < kBands; ++b) {
    smooth[b] = 0.25f * (bands[b - 1] + bands[b + 1]) + 0.5f * bands[b];
  }
  smooth[0] = 0.75f * bands[0] + 0.25f * bands[1];
  smooth[kBands - 1] = 0.75f * bands[kBands - 1] + 0.25f * bands[kBands - 2];
  bands = smooth;
}

}  // namespace kelda::upmix_lib
