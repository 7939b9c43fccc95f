// The bands that the upmix decides in: about one critical band wide.
//
//   bins   0..15   16..31   32..63   64..127   128..255
//   Hz     0..1450 ..2950   ..5950   ..11950   ..23900
//   width  1 bin   2        4        8         16 bins
//   bands  16      8        8        8         8
//
// Below 1.5 kHz a band is one bin, from there on there are eight to an octave, which
// follows the ear's resolution (Glasberg and Moore, "Derivation of auditory filter
// shapes from notched-noise data", Hearing Research 47, 1990) and suits vectors.
#ifndef KELDA_UPMIX_LIB_UPMIX_BANDS_H_
#define KELDA_UPMIX_LIB_UPMIX_BANDS_H_

#include "platform/nonblocking.h"
#include "upmix-lib/upmix/analysis.h"

namespace kelda::upmix_lib {

inline constexpr int kBands = 48;

// One value for each band.
struct alignas(kSimdAlignmentBytes) BandValues {
  float value[kBands];

  float& operator[](int band) { return value[band]; }
  float operator[](int band) const { return value[band]; }
};

// Bins of the short spectrum in a band. Any thread.
constexpr int BandBins(int band) { return band < 16 ? 1 : 2 << (band - 16) / 8; }

// Sums `bins`, kPaddedShortBins values, band by band. The bin at half the sample rate
// belongs to no band. Audio.
void SumBins(const float* bins, BandValues& bands) KELDA_NONBLOCKING;

// Draws straight lines through the band centres: kPaddedShortBins values. Audio.
void SpreadBands(const BandValues& bands, float* bins) KELDA_NONBLOCKING;

// Mixes each band with its neighbours: 1/4, 1/2, 1/4. Audio.
void SmoothBands(BandValues& bands) KELDA_NONBLOCKING;

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_UPMIX_BANDS_H_
