#include "tools/equalizer/equalizer_response.h"

#include <cmath>
#include <limits>

namespace kelda::tools {

EqualizerResponse::EqualizerResponse(const EqualizerText& text) : text_(text) {
  for (const upmix_lib::EqualizerBand& band : text.bands) {
    biquads_.push_back(upmix_lib::DesignBiquad(band));
  }
}

double EqualizerResponse::GainDb(double freq_hz) const {
  double gain_db = text_.preamp_db;
  for (const upmix_lib::Biquad& biquad : biquads_) {
    gain_db += upmix_lib::ResponseDb(biquad, freq_hz);
  }
  for (const GraphicCurve& curve : text_.graphic_curves) {
    gain_db += curve.GainDb(freq_hz);
  }
  return gain_db;
}

EqualizerResponse::Peak EqualizerResponse::FindPeak() const {
  Peak peak{0, -std::numeric_limits<double>::infinity()};
  const auto look_at = [&](double freq_hz) {
    if (const double gain_db = GainDb(freq_hz); gain_db > peak.gain_db) {
      peak = {freq_hz, gain_db};
    }
  };
  constexpr double kLowestHz = 10, kHighestHz = 24000;
  constexpr int kSteps = 1100;  // 98 an octave
  for (int step = 0; step < kSteps; ++step) {
    look_at(kLowestHz * std::pow(kHighestHz / kLowestHz, double(step) / kSteps));
  }
  look_at(kHighestHz);
  // A bell may be narrower than the steps, and the points of a curve may lie between them.
  for (const upmix_lib::EqualizerBand& band : text_.bands) {
    look_at(band.freq_hz);
  }
  if (biquads_.empty()) {
    for (const GraphicCurve& curve : text_.graphic_curves) {
      for (const GraphicCurve::Point& point : curve.points()) {
        if (point.freq_hz <= kHighestHz) {
          look_at(point.freq_hz);
        }
      }
    }
  }
  return peak;
}

}  // namespace kelda::tools
