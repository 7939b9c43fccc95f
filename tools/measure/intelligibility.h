// How much of a wanted signal is in what was heard. Signals are 48 kHz mono, of one length.
#ifndef KELDA_TOOLS_MEASURE_INTELLIGIBILITY_H_
#define KELDA_TOOLS_MEASURE_INTELLIGIBILITY_H_

#include <span>

namespace kelda::tools {

// The scale-invariant ratio of signal to distortion, in dB: the power of the part of `heard`
// that is `wanted` at some gain, over the power of the rest (Le Roux, Wisdom, Erdogan and
// Hershey, "SDR - half-baked or well done?", 2019). Higher is cleaner.
double SiSdrDb(std::span<const float> heard, std::span<const float> wanted);

// The extended short-time objective intelligibility, 1 for the speech itself and about 0 for
// what has nothing to do with it (Jensen and Taal, "An algorithm for predicting the
// intelligibility of speech masked by modulated noise maskers", 2016): at 10 kHz, frames of
// 256 samples that overlap by half and are within 40 dB of the loudest of the speech, 15 third
// octaves from 150 Hz, segments of 30 frames, their rows and columns at zero mean and unit norm,
// the mean of their inner products.
double Estoi(std::span<const float> heard, std::span<const float> speech);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_INTELLIGIBILITY_H_
