// Sounds to measure the effect with.
#ifndef KELDA_TOOLS_MEASURE_TEST_SIGNAL_H_
#define KELDA_TOOLS_MEASURE_TEST_SIGNAL_H_

#include <cstddef>
#include <vector>

#include "tools/measure/spectrum.h"
#include "upmix-lib/base/audio_format.h"

namespace kelda::tools {

// Where a measuring sound comes from in the stereo image.
enum class Image {
  kCentre,   // both channels the same
  kLeft,     // the right channel is silent
  kDiffuse,  // the channels are uncorrelated
};

enum class Waveform {
  // The frequency rises by the same number of octaves in every second (Farina, "Simultaneous
  // measurement of impulse response and distortion with a swept-sine technique", 2000). Refused for
  // kDiffuse, in which the channels would have different frequencies at any moment.
  kSweep,
  kNoise,  // sines with random phases
};

// A sum of sines with the spectrum of pink noise from 20 Hz to 20 kHz, which repeats every kPeriod
// frames (Schroeder, "Synthesis of low-peak-factor signals and binary sequences with low
// autocorrelation", 1970, gives the phases of the sweep). Every period has the same spectrum. So
// the response of a system that does not change is exact after a few periods, and any difference
// between periods comes from a change of the system.
class TestSignal {
 public:
  static constexpr std::size_t kPeriod = 65536;   // 1.4 s
  static constexpr std::size_t kFirstBin = 28;    // 20.5 Hz
  static constexpr std::size_t kLastBin = 27304;  // 19998 Hz
  static double BinHz(std::size_t bin) {
    return static_cast<double>(bin) * upmix_lib::kSampleRateHz / kPeriod;
  }

  // RMS of a channel that is not silent, 1 is full scale. The same sound in every run.
  // Throws std::invalid_argument for a diffuse sweep.
  TestSignal(Image image, Waveform waveform, double rms);

  // One period, interleaved stereo.
  const std::vector<float>& frames() const { return frames_; }
  // The spectrum of the left channel over one period.
  const Spectrum& left() const { return left_; }
  // Mean power per channel and bin, silent ones included.
  double BinPower(std::size_t bin) const { return power_[bin]; }
  // The largest magnitude.
  float peak() const;

 private:
  std::vector<float> frames_;
  Spectrum left_;
  Power power_;
};

// One period of pink noise, half of it centred and half of it diffuse, interleaved stereo; each
// half has `rms`.
std::vector<float> HalfCentredNoise(double rms);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_MEASURE_TEST_SIGNAL_H_
