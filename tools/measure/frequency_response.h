// The frequency responses of the tuning's filters.
#ifndef KELDA_TOOLS_MEASURE_FREQUENCY_RESPONSE_H_
#define KELDA_TOOLS_MEASURE_FREQUENCY_RESPONSE_H_

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {

// `count` frequencies from `first_hz` to `last_hz`, at equal distances on a logarithmic scale.
std::vector<double> LogFrequencies(double first_hz, double last_hz, int count);

// The response of an FIR filter at 48 kHz to `freq_hz`, 0..24000.
std::complex<double> ResponseAt(std::span<const float> taps, double freq_hz);

// The gain of one curve of an equalizer, with its preamp.
double EqualizerGainDb(const upmix_lib::EqualizerTuning& tuning, std::size_t curve, double freq_hz);

struct GainPeak {
  double freq_hz;
  double gain_db;
};

// The largest gain of any curve between 10 Hz and 24 kHz.
GainPeak FindEqualizerPeak(const upmix_lib::EqualizerTuning& tuning);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_FREQUENCY_RESPONSE_H_
