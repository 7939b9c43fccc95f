#include "upmix-lib/bands.h"

#include <algorithm>
#include <cmath>

namespace kelda::upmix_lib {
namespace {

constexpr int kSingleBins = 16;     // bands of one bin
constexpr int kBandsPerOctave = 8;  // behind them
constexpr int kWidest = 16;         // bins

// Calls f.operator()<width>(first band, first bin) for each octave of bands.
template <typename F>
void ForEachOctave(F&& f) {
  f.template operator()<2>(16, 16);
  f.template operator()<4>(24, 32);
  f.template operator()<8>(32, 64);
  f.template operator()<16>(40, 128);
}

// Fills the kWidth bins of a band on straight lines from the centre of the band below
// to its own and on to the band above. `below_width` is that of the band below, the
// band above is as wide as this one or twice (`above_width`).
template <int kWidth>
void SpreadBand(float below, float own, float above, int below_width, int above_width,
                float* bins) {
  const float rise = 2.0f * (own - below) / static_cast<float>(kWidth + below_width);
  const float fall = 2.0f * (above - own) / static_cast<float>(kWidth + above_width);
  constexpr int kHalf = kWidth / 2;
  for (int j = 0; j < kHalf; ++j) {
    bins[j] = own + rise * (static_cast<float>(j - kHalf) + 0.5f);
    bins[kHalf + j] = own + fall * (static_cast<float>(j) + 0.5f);
  }
}

}  // namespace

float BandHz(int band) {
  constexpr float kBinHz = 48000.0f / kTransformFrames;
  if (band < kSingleBins) {
    return kBinHz * static_cast<float>(band);
  }
  const int octave = (band - kSingleBins) / kBandsPerOctave;
  const int width = 2 << octave;
  const int first_bin = width * (kBandsPerOctave + (band - kSingleBins) % kBandsPerOctave);
  return kBinHz * (static_cast<float>(first_bin) + 0.5f * static_cast<float>(width - 1));
}

float HighPassShare(float hz, float crossover_hz) {
  if (crossover_hz <= 0.0f) {
    return 1.0f;
  }
  if (hz <= 0.0f) {
    return 0.0f;
  }
  const float at = std::clamp(0.5f + 0.5f * std::log2(hz / crossover_hz), 0.0f, 1.0f);
  return at * at * (3.0f - 2.0f * at);
}

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
    for (int b = 0; b < kBandsPerOctave; ++b) {
      const int at = band + b;
      const int below_width = b == 0 ? kWidth / 2 : kWidth;
      const int above_width = b + 1 == kBandsPerOctave && kWidth < kWidest ? 2 * kWidth : kWidth;
      const float above = at + 1 < kBands ? bands[at + 1] : bands[at];
      SpreadBand<kWidth>(bands[at - 1], bands[at], above, below_width, above_width,
                         bins + bin + b * kWidth);
    }
  });
  std::fill(bins + kBins - 1, bins + kPaddedBins, bands[kBands - 1]);
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
