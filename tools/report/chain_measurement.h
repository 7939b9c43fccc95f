// Measures what a listener hears through a whole chain of the effect.
#ifndef KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_
#define KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/measure/test_signal.h"

namespace kelda::tools {

// The response to sound from one place of the image: to a sweep, or to noise if the sound is
// diffuse. The upmix depends on where sound comes from, and the level control on how loud it is. So
// a response is true only for this sound at this level: kRms, after the level control has settled
// (kSettlingSeconds).
struct ImageResponse {
  static constexpr double kRms = 0.05;  // -26 dBFS
  static constexpr int kSettlingSeconds = 20;
  static constexpr std::size_t kPeriods = 4;  // averaged, 5.5 s
  // So a filter with a Q of 10 is seven bands wide, between the points of half its gain.
  static constexpr int kBandsPerOctave = 48;

  // The gain of the left and the right ear in dB, at the frequencies of ResponseFrequencies(): the
  // power at the ear relative to the mean power of the channels that are not silent.
  std::array<std::vector<double>, 2> gain_db;
  // The gain over all frequencies and both ears together, in dB.
  double level_db = 0;
  // The share of the power that is the same in every period: 1 if the chain does not vary in time.
  double steady_share = 0;
  // When the largest part of the sound arrives, in frames; measured only for centre and left.
  double arrival_frames = 0;
  // The true peak over the whole run of the same sound at full scale, in dBTP.
  double full_scale_true_peak_db = 0;
};

struct ChainMeasurement {
  static constexpr std::size_t kHostFrames = 960;  // 20 ms, as a phone's mixer plays
  std::array<ImageResponse, 3> images;             // by Image
  // The latency in frames that the effect itself states: as many as it replaces by silence when it
  // fades.
  int64_t latency_frames = 0;
  // When the sound of the centre arrives if a host plays it in blocks of kHostFrames, in frames.
  // This includes the wait in the effect's rings.
  double heard_latency_frames = 0;
};

// 1/48 octaves from 20 Hz to 20 kHz.
const std::vector<double>& ResponseFrequencies();

// What the measurement would show for a known gain: its average over 1/48 octaves of the sound.
std::vector<double> BandAverageDb(const std::function<double(double freq_hz)>& gain_db);

// Measures the chain that an instance of the effect runs with `settings`. Takes a few
// seconds. Throws Failure (refused), Interrupted.
ChainMeasurement MeasureChain(const EffectLibrary& library, const std::vector<Setting>& settings);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPORT_CHAIN_MEASUREMENT_H_
