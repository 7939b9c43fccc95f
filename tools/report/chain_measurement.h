// Measures what a listener gets of a whole chain of the effect.
#ifndef KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_
#define KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/measure/test_signal.h"

namespace kelda::tools {

// The response to sound from one place of the image: to a sweep, or to noise if the sound is
// diffuse. The upmix hears where sound comes from and the level control how loud it is, so
// that a response holds for this sound only, at this level: kRms, once the level control has
// settled (kSettlingSeconds).
struct ImageResponse {
  static constexpr double kRms = 0.05;  // -26 dBFS
  static constexpr int kSettlingSeconds = 20;
  static constexpr size_t kPeriods = 4;  // averaged, 5.5 s
  // Seven bands lie within the width of a filter of Q 10, between the halves of its gain.
  static constexpr int kBandsPerOctave = 48;

  // Gain by frequency, left and right ear, in dB: power at the ear over the mean power of
  // the channels that sound. At the frequencies of ResponseFrequencies().
  std::array<std::vector<double>, 2> gain_db;
  // The gain of the whole, all frequencies and both ears together.
  double level_db = 0;
  // Share of the power that is the same in every period: 1 of a chain that stands still.
  double steady_share = 0;
  // When the largest part of the sound arrives, in frames; of centre and left only.
  double arrival_frames = 0;
  // The true peak of the same sound at full scale, the whole run, in dBTP.
  double full_scale_true_peak_db = 0;
};

struct ChainMeasurement {
  static constexpr size_t kHostFrames = 960;  // 20 ms, as a phone's mixer plays
  std::array<ImageResponse, 3> images;        // by Image
  // What the effect itself declares and replaces by silence when it fades.
  int64_t latency_frames = 0;
  // When the centre's sound arrives that a host plays in blocks of kHostFrames, in frames: the
  // wait in the effect's rings included.
  double heard_latency_frames = 0;
};

// 1/48 octaves from 20 Hz to 20 kHz.
const std::vector<double>& ResponseFrequencies();

// A known gain as the measurement shows it: averaged over 1/48 octaves of the sound.
std::vector<double> BandAverageDb(const std::function<double(double freq_hz)>& gain_db);

// Measures the chain that `settings` make an instance of the effect run. Takes a few
// seconds. Throws Failure (refused), Interrupted.
ChainMeasurement MeasureChain(const EffectLibrary& library, const std::vector<Setting>& settings);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_
