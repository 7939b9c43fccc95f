// How much louder or softer, to a listener, one spectrum is than another.
#ifndef KELDA_TOOLS_MEASURE_COLOURATION_H_
#define KELDA_TOOLS_MEASURE_COLOURATION_H_

#include <vector>

namespace kelda::tools {

// The loudness level, in phon, of a tone of `level_db` SPL (ISO 226:2003), by the contour of
// that many phon. Between the standard's frequencies, of which the last is 12.5 kHz, on straight
// lines over the logarithm of the frequency; at 20 kHz the contour of 20 Hz holds again.
double Phon(double level_db, double freq_hz);

// The predicted binaural colouration, in sone (McKenzie, Armstrong, Ward, Murphy and Kearney,
// "Predicting the colouration between binaural signals", Applied Sciences 12, 2022): spectra are
// brought to 75 dB on average and turned into sone; the mean of their difference counts each
// frequency by the inverse of the ear's bandwidth there, with the level difference that makes it
// least. Lower is less colour. `heard_db` and `reference_db` hold a curve for each ear, levels
// of pink noise's density at `freq_hz`, which lie in equal ratios.
double Colouration(const std::vector<double>& freq_hz,
                   const std::vector<std::vector<double>>& heard_db,
                   const std::vector<std::vector<double>>& reference_db);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_COLOURATION_H_
