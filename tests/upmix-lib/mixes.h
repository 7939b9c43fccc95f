// Mixes whose truth is known, and how to find their parts again in an output.
#ifndef KELDA_TESTS_UPMIX_LIB_MIXES_H_
#define KELDA_TESTS_UPMIX_LIB_MIXES_H_

#include <cstdint>
#include <vector>

namespace kelda::upmix_lib {

using Signal = std::vector<float>;

// Noise between two frequencies, 3 dB less each octave, of unit power. Steady.
Signal PinkNoise(uint32_t seed, int frames, float low_hz = 60.0f, float high_hz = 16000.0f);

// `signal` with the level of speech: syllables and pauses, of unit power again.
Signal Syllables(uint32_t seed, const Signal& signal);

struct Stereo {
  Signal left, right;
};

// A source of unit power at `angle_deg`, -45 (right only) to +45 (left only) by the
// constant-power law, over ambience of `ambience_db` in all, equal and independent in
// both channels.
struct PannedMix {
  Signal source, left_ambience, right_ambience;
  Stereo mix;
};
PannedMix MakePannedMix(const Signal& source, float angle_deg, float ambience_db, uint32_t seed);

// Adds `gain` * `from` to `to`.
void AddTo(Signal& to, const Signal& from, float gain);

// Mean power of `signal` behind its first `skip` frames.
double Power(const Signal& signal, int skip);

// The part of the power of `output` that is linearly related to `cause`, `delay_frames`
// earlier and within 20 ms: sum over frequency of |Pxy|^2 / Pxx by Welch's method, less
// what unrelated signals would give by chance. The first second does not count.
double PowerCausedBy(const Signal& cause, const Signal& output, int delay_frames,
                     float low_hz = 0.0f, float high_hz = 24000.0f);

// A short impulse below a quarter of the sample rate, centred on frame `at`.
Signal BandLimitedImpulse(int frames, int at);

// The lag, below 1000, at which the cross-correlation of an impulse and what became of
// it peaks.
int LatencyFrames(const Signal& impulse, const Signal& out);

double Db(double power);

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_MIXES_H_
