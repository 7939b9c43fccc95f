#include "tools/measure/frequency_response.h"

#include <cmath>
#include <cstddef>
#include <numbers>

#include "tools/core/decibels.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::tools {

std::vector<double> LogFrequencies(double first_hz, double last_hz, int count) {
  std::vector<double> frequencies(static_cast<std::size_t>(count));
  const double ratio = std::log(last_hz / first_hz) / (count - 1);
  for (int i = 0; i < count; ++i) {
    frequencies[static_cast<std::size_t>(i)] = first_hz * std::exp(ratio * i);
  }
  return frequencies;
}

std::complex<double> ResponseAt(std::span<const float> taps, double freq_hz) {
  const std::complex<double> step =
      std::polar(1.0, -2 * std::numbers::pi * freq_hz / upmix_lib::kSampleRateHz);
  std::complex<double> turn = 1;
  std::complex<double> sum = 0;
  for (const float tap : taps) {
    sum += static_cast<double>(tap) * turn;
    turn *= step;
  }
  return sum;
}

double EqualizerGainDb(const upmix_lib::EqualizerTuning& tuning, std::size_t curve,
                       double freq_hz) {
  const auto& response = tuning.curves[curve];
  double gain_db = static_cast<double>(tuning.preamp_db);
  if (tuning.form == upmix_lib::EqualizerForm::kFir) {
    return gain_db + ToDb(std::abs(ResponseAt(response.taps, freq_hz)));
  }
  for (const upmix_lib::EqualizerBand& band : response.bands) {
    gain_db += upmix_lib::ResponseDb(upmix_lib::DesignBiquad(band), freq_hz);
  }
  return gain_db;
}

GainPeak FindEqualizerPeak(const upmix_lib::EqualizerTuning& tuning) {
  GainPeak peak{0, -1000};
  for (std::size_t curve = 0; curve < tuning.curves.size(); ++curve) {
    std::vector<double> frequencies = LogFrequencies(10, 24000, 1000);
    for (const upmix_lib::EqualizerBand& band : tuning.curves[curve].bands) {
      frequencies.push_back(
          static_cast<double>(band.freq_hz));  // a narrow band may lie between the others
    }
    for (const double freq_hz : frequencies) {
      const double gain_db = EqualizerGainDb(tuning, curve, freq_hz);
      if (gain_db > peak.gain_db) {
        peak = {freq_hz, gain_db};
      }
    }
  }
  return peak;
}

}  // namespace kelda::tools
