// What a stereo system does to a sound on its way to the ears, as figures.
#ifndef KELDA_TOOLS_MEASURE_EAR_FIGURES_H_
#define KELDA_TOOLS_MEASURE_EAR_FIGURES_H_

#include <span>
#include <vector>

#include "tools/measure/stereo_system.h"
#include "tools/measure/test_signal.h"

namespace kelda::tools {

// ---- Lines that are not in the music.

struct PannedTone {
  double freq_hz;
  double left, right;  // amplitudes
};

// The spectrum at the ear that hears the highest line of all that are more than 30 Hz from every
// tone, relative to the highest tone at that ear, once the tones have been steady for 8 s: by a
// transform of 2.7 s with a four-term Blackman-Harris window, whose side lobes are at -92 dB
// (Harris, 1978).
struct LineSpectrum {
  double worst_db = -200;  // the highest such line; lower is better
  // By twelfths of an octave from 50 Hz: the highest line near the tones, and of the rest. -200
  // where there is none.
  std::vector<double> freq_hz, tones_db, rest_db;
};
LineSpectrum MeasureLines(const StereoSystem& system, std::span<const PannedTone> tones);

// A sound: 1 kHz in the centre with 1.4 kHz hard left, 5 with 5.9 kHz, 300 with 420 Hz.
const std::vector<std::vector<PannedTone>>& TonePairs();
// A chord of 18 partials: three notes, left, in the centre and right, of six harmonics each.
const std::vector<PannedTone>& OrganChord();

// ---- Colour.

// Pink noise at -26 dBFS from one place of the image that never repeats, and what the ears get of
// it, behind the first 8 s. The whole lasts `frames`, a power of two; the rest of it, 36 s, makes
// the figures steady within a few hundredths, and 14 s within a tenth.
struct HeardNoise {
  Channels in, ears;
  Power in_power, ears_power;  // of both channels together, by frequency (band_power.h)
};
HeardNoise Hear(const StereoSystem& system, Image image, std::size_t frames = 2097152);

// Both ears' power over that of both channels, in third octaves, in dB.
std::vector<double> GainsDb(const HeardNoise& heard, const std::vector<double>& centres);
// Third octaves from 125 Hz to 10 kHz of both ears' power over that of both channels: the
// largest less the smallest. Lower is better.
double ColourDb(const HeardNoise& heard);
// 8 kHz less the mean from 500 Hz to 2 kHz, likewise. Nearer to 0 is better.
double TrebleDb(const HeardNoise& heard);
// 40 to 100 Hz less 40 Hz to 16 kHz, likewise: pink noise has both alike. Nearer to 0 is better.
double BassDb(const HeardNoise& heard);
// The predicted binaural colouration of the power of both ears against that of both channels.
double ColourationSone(const HeardNoise& heard);

// ---- Space.

// Coherence, its real part, between two frequencies.
double Coherence(const Channels& ears, double low_hz, double high_hz);
// The coherence of wide sound beside that of a diffuse field (0.48 from 250 to 400 Hz, 0.06 to
// 600, -0.20 to 900 and 0 to 4 kHz; after Lindevald and Benade, 1986), by sixths of an octave.
struct CoherenceCurve {
  std::vector<double> freq_hz, heard, diffuse;
  // The root mean square of the difference. Lower is better.
  double Off() const;
};
CoherenceCurve MeasureCoherence(const Channels& ears);
// Two cues by which a sound is heard outside the head (Catic, Santurette and Dau, "The role of
// reverberation-related binaural cues in the externalization of speech", 2015), both over third
// octaves from 500 Hz to 4 kHz: the mean coherence, in magnitude, of which less is better, and the
// standard deviation over time of the level difference in windows of 20 ms, of which more is.
struct Externalisation {
  double coherence, level_deviation_db;
};
Externalisation MeasureExternalisation(const Channels& ears);
// Power of the side over that of the middle, 300 Hz to 8 kHz, in dB. Higher is wider.
double WidthDb(const Channels& ears);

// The responses of both ears to sound from the centre or the left, kPeriod taps.
Channels EarResponses(const StereoSystem& system, Image image);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_EAR_FIGURES_H_
