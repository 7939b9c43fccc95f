#ifndef KELDA_UPMIX_LIB_FILTERS_BIQUAD_DESIGN_H_
#define KELDA_UPMIX_LIB_FILTERS_BIQUAD_DESIGN_H_

#include <cstdint>

namespace kelda::upmix_lib {

enum class BandType : uint32_t {
  kPeaking = 0,
  kLowShelf = 1,
  kHighShelf = 2,
  kLowPass = 3,
  kHighPass = 4,
  kBandPass = 5,  // 0 dB at the centre
  kNotch = 6,
};
inline constexpr uint32_t kBandTypes = 7;

// One band of an equalizer, as equalizer/equalizer_format.h bounds it and as files hold it.
struct EqualizerBand {
  BandType type;
  float freq_hz;  // centre or corner, kBandMinHz..kBandMaxHz
  float gain_db;  // peaking and shelves, kBandMinDb..kBandMaxDb; 0 for the others
  float q;        // kBandMinQ..kBandMaxQ
};
static_assert(sizeof(EqualizerBand) == 16);

// Second-order section, normalised to a0 = 1:
//   H(z) = (b0 + b1 z^-1 + b2 z^-2) / (1 + a1 z^-1 + a2 z^-2)
struct Biquad {
  double b0 = 1, b1 = 0, b2 = 0;
  double a1 = 0, a2 = 0;
};

// The section of one equalizer band at kSampleRateHz, after R. Bristow-Johnson, "Cookbook
// formulae for audio EQ biquad filter coefficients": the bilinear transform of the analog
// prototypes, frequency warped to fit at freq_hz. Near the Nyquist frequency the bells come
// out narrower than analog ones. That is wanted: published headphone corrections (AutoEq,
// Equalizer APO) are computed with the same formulas.
//
// Shelves take q as it is (not a slope); freq_hz is where half of gain_db is reached. The
// band must have passed the checks of its file. Control.
Biquad DesignBiquad(const EqualizerBand& band);

// Gain of the section at `freq_hz`, 0..kSampleRateHz / 2. Control.
double ResponseDb(const Biquad& biquad, double freq_hz);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILTERS_BIQUAD_DESIGN_H_
