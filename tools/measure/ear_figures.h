// What a stereo system does to a sound on its way to the ears, as figures.
//
// Signals are planar, 48 kHz, left and right. A system starts from silence in every call, puts
// out as many frames as it takes, and may be late.
#ifndef KELDA_TOOLS_MEASURE_EAR_FIGURES_H_
#define KELDA_TOOLS_MEASURE_EAR_FIGURES_H_

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/measure/test_signal.h"

namespace kelda::tools {

using Channels = std::vector<std::vector<float>>;
using StereoSystem = std::function<Channels(const Channels& in)>;

// ---- Lines that are not in the music.

struct PannedTone {
  double freq_hz;
  double left, right;  // amplitudes
};

// The highest line of the spectrum at either ear that is more than 30 Hz from every tone,
// relative to the highest tone at that ear, in dB, once the tones have been steady for 8 s: by a
// transform of 2.7 s with a four-term Blackman-Harris window, whose side lobes are at -92 dB
// (Harris, 1978). Lower is better.
double WorstInharmonicLineDb(const StereoSystem& system, std::span<const PannedTone> tones);

// A sound: 1 kHz in the centre with 1.4 kHz hard left, 5 with 5.9 kHz, 300 with 420 Hz.
const std::vector<std::vector<PannedTone>>& TonePairs();
// A chord of 18 partials: three notes, left, in the centre and right, of six harmonics each.
const std::vector<PannedTone>& OrganChord();

// ---- Colour.

// Pink noise at -26 dBFS from one place of the image that never repeats, and what the ears get of
// it, behind the first 8 s, in 36 s.
struct Heard {
  Channels in, ears;
};
Heard Hear(const StereoSystem& system, Image image);

// Third octaves from 125 Hz to 10 kHz of both ears' power over that of both channels: the
// largest less the smallest. Lower is better.
double ColourDb(const Heard& heard);
// 8 kHz less the mean from 500 Hz to 2 kHz, likewise. Nearer to 0 is better.
double TrebleDb(const Heard& heard);
// The predicted binaural colouration of the power of both ears against that of both channels.
double ColourationSone(const Heard& heard);

// ---- Space.

// Coherence, its real part, between two frequencies.
double Coherence(const Channels& ears, double low_hz, double high_hz);
// How far the coherence of wide sound is off that of a diffuse field (0.48 from 250 to 400 Hz, 0.06
// to 600, -0.20 to 900 and 0 to 4 kHz; after Lindevald and Benade, 1986): the root mean square
// over sixths of an octave. Lower is better.
double OffDiffuseField(const Channels& ears);
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

// ---- Level.

// A system whose mode changes while it plays: `from` before frame `change`, `to` from there on.
using ModalSystem = std::function<Channels(const Channels& in, const std::string& from,
                                           const std::string& to, std::size_t change)>;

// By how much the level falls short of what the new mode settles at, at the worst, from 0.2 to 1.5
// s after the change, in windows of 0.1 s: beside a run that was in the new mode all along.
// `programme` lasts 23 s; the change comes after 20. Lower is better.
double HandoverDb(const ModalSystem& system, const Channels& programme, const std::string& from,
                  const std::string& to);
// The time from the start until the gain stays within `within_db` of what it settles at, in s.
// `programme` lasts 5 s and is played eight times. Lower is better.
double SettlingSeconds(const StereoSystem& system, const Channels& programme, double within_db);
// For how long the gain is more than 3 dB above what it settles at, in s, when a programme of
// 5 s that was played four times is played on, four times, 18 dB louder. Lower is better.
double JumpSeconds(const StereoSystem& system, const Channels& programme);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_EAR_FIGURES_H_
