// Test signals whose truth is known, and the meters that find their parts again in an
// output. Signals are 48 kHz mono, planes are signals of one length.
#ifndef KELDA_TESTS_LABORATORY_SIGNALS_H_
#define KELDA_TESTS_LABORATORY_SIGNALS_H_

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace kelda::upmix_lib {

using Signal = std::vector<float>;
using Planes = std::vector<Signal>;

// White noise of the given peak; the same seed gives the same noise.
inline Signal Noise(std::size_t count, uint32_t seed, float peak = 0.5f) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<float> uniform(-peak, peak);
  Signal noise(count);
  for (float& sample : noise) {
    sample = uniform(generator);
  }
  return noise;
}

// Noise between two frequencies, 3 dB less each octave, of unit power. Steady.
Signal PinkNoise(uint32_t seed, std::size_t frames, float low_hz = 60.0f, float high_hz = 16000.0f);

// `signal` with the level of speech: syllables and pauses, of unit power again.
Signal Syllables(uint32_t seed, const Signal& signal);

Signal Sine(double freq_hz, double amplitude, std::size_t frames, double phase = 0.0);

// A source of unit power at `angle_deg`, -45 (right only) to +45 (left only) by the
// constant-power law, over ambience of `ambience_db` in all, equal and independent in
// both channels.
struct PannedMix {
  Signal source;
  Planes ambience, mix;
};
PannedMix MakePannedMix(const Signal& source, float angle_deg, float ambience_db, uint32_t seed);

// Adds `gain` * `from` to `to`.
void AddTo(Signal& to, const Signal& from, float gain = 1.0f);

// The same, later, at the same length.
Planes Delayed(const Planes& planes, std::size_t frames);

double Db(double power);

// Mean power after the first `skip` frames.
double Power(std::span<const float> signal, std::size_t skip = 0);

// The part of the power of `output` that is linearly related to `cause`, `delay_frames`
// earlier and within 20 ms: sum over frequency of |Pxy|^2 / Pxx by Welch's method, less
// what unrelated signals would give by chance. The first second does not count.
double PowerCausedBy(const Signal& cause, const Signal& output, int delay_frames,
                     float low_hz = 0.0f, float high_hz = 24000.0f);

// Power of the difference relative to the power of `expected`, in decibels.
template <typename Actual, typename Expected>
double ErrorDb(const Actual& actual, const Expected& expected, std::size_t skip = 0) {
  double error = 0.0, power = 0.0;
  for (std::size_t i = skip; i < expected.size(); ++i) {
    const double difference = static_cast<double>(actual[i]) - static_cast<double>(expected[i]);
    error += difference * difference;
    power += static_cast<double>(expected[i]) * static_cast<double>(expected[i]);
  }
  return Db(error / power);
}

// ---- Stereo programmes, and libebur128 as the meter that is not ours.

// Notes, strokes and noise with the dynamics of music, different in both channels; whole
// blocks of at least `seconds`.
Planes Music(double seconds, uint32_t seed);
// Noise in syllables with pauses, equal in both channels.
Planes Speech(double seconds, uint32_t seed);

// Gated loudness, and the larger channel's true peak, from frame `from` on.
double LoudnessLufs(const Planes& stereo, std::size_t from = 0);
double TruePeakDb(const Planes& stereo);
// `stereo` scaled to a loudness.
Planes AtLoudness(Planes stereo, double lufs);

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_LABORATORY_SIGNALS_H_
