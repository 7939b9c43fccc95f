#include "upmix-lib/filters/biquad_design.h"

#include <cmath>
#include <complex>

#include "platform/math_constants.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/decibels.h"

namespace kelda::upmix_lib {
namespace {

Biquad Normalise(double b0, double b1, double b2, double a0, double a1, double a2) {
  return {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0};
}

}  // namespace

Biquad DesignBiquad(const EqualizerBand& band) {
  const double angle = 2 * kPi * static_cast<double>(band.freq_hz) / kSampleRateHz;
  const double cosine = std::cos(angle);
  const double alpha = std::sin(angle) / (2 * static_cast<double>(band.q));
  const double a = AmplitudeFromDb(static_cast<double>(band.gain_db) / 2);
  const double slope = 2 * std::sqrt(a) * alpha;
  switch (band.type) {
    case BandType::kPeaking:
      return Normalise(1 + alpha * a, -2 * cosine, 1 - alpha * a,  //
                       1 + alpha / a, -2 * cosine, 1 - alpha / a);
    case BandType::kLowShelf:
      return Normalise(a * ((a + 1) - (a - 1) * cosine + slope),
                       2 * a * ((a - 1) - (a + 1) * cosine),
                       a * ((a + 1) - (a - 1) * cosine - slope),
                       (a + 1) + (a - 1) * cosine + slope,  //
                       -2 * ((a - 1) + (a + 1) * cosine),   //
                       (a + 1) + (a - 1) * cosine - slope);
    case BandType::kHighShelf:
      return Normalise(a * ((a + 1) + (a - 1) * cosine + slope),
                       -2 * a * ((a - 1) + (a + 1) * cosine),
                       a * ((a + 1) + (a - 1) * cosine - slope),
                       (a + 1) - (a - 1) * cosine + slope,  //
                       2 * ((a - 1) - (a + 1) * cosine),    //
                       (a + 1) - (a - 1) * cosine - slope);
    case BandType::kLowPass:
      return Normalise((1 - cosine) / 2, 1 - cosine, (1 - cosine) / 2,  //
                       1 + alpha, -2 * cosine, 1 - alpha);
    case BandType::kHighPass:
      return Normalise((1 + cosine) / 2, -(1 + cosine), (1 + cosine) / 2,  //
                       1 + alpha, -2 * cosine, 1 - alpha);
    case BandType::kBandPass:
      return Normalise(alpha, 0, -alpha, 1 + alpha, -2 * cosine, 1 - alpha);
    case BandType::kNotch:
      return Normalise(1, -2 * cosine, 1, 1 + alpha, -2 * cosine, 1 - alpha);
  }
  return {};
}

double ResponseDb(const Biquad& biquad, double freq_hz) {
  const std::complex<double> delay = std::polar(1.0, -2 * kPi * freq_hz / kSampleRateHz);
  const std::complex<double> zeros = biquad.b0 + delay * (biquad.b1 + delay * biquad.b2);
  const std::complex<double> poles = 1.0 + delay * (biquad.a1 + delay * biquad.a2);
  return DbFromAmplitude(std::abs(zeros / poles));
}

}  // namespace kelda::upmix_lib
