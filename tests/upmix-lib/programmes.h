// Test programmes, and libebur128 as the meter that is not ours.
#ifndef KELDA_TESTS_UPMIX_LIB_PROGRAMMES_H_
#define KELDA_TESTS_UPMIX_LIB_PROGRAMMES_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kelda::upmix_lib {

// All are interleaved stereo at 48 kHz, in whole blocks of at least `seconds`.

// Notes, strokes and noise with the dynamics of music, different in both channels.
std::vector<float> MakeMusic(double seconds, uint32_t seed);

// Pink noise in syllables with pauses between, equal in both channels.
std::vector<float> MakeSpeech(double seconds, uint32_t seed);

// `frames` scaled to a loudness.
std::vector<float> AtLoudness(std::vector<float> frames, double lufs);

// What libebur128 measures: gated loudness, and the larger channel's true peak.
double MeasureLufs(std::span<const float> frames);
double MeasureTruePeakDb(std::span<const float> frames);

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_PROGRAMMES_H_
