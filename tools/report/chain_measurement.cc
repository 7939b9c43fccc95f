#include "tools/report/chain_measurement.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>

#include "tools/core/decibels.h"
#include "tools/core/interruption.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/processor_latency.h"
#include "tools/measure/frequency_response.h"
#include "upmix-lib/level/true_peak.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kPeriod = TestSignal::kPeriod;
static_assert(kPeriod % kPeriodFrames == 0);

// Plays the sound in host blocks of one size.
class Player {
 public:
  // Blocks of one period of the effect pass without the latency of the rings.
  Player(const EffectLibrary& library, const std::vector<Setting>& settings,
         const TestSignal& signal, float gain, std::size_t block_frames = kPeriodFrames)
      : session_(library), frames_(signal.frames()), block_(kChannels * block_frames) {
    for (float& sample : frames_) {
      sample *= gain;
    }
    session_.Enable();
    for (const Setting& setting : settings) {
      Apply(setting, &session_);
    }
  }

  // Plays the next period of the sound and returns what comes out meanwhile.
  std::vector<float> Play() {
    CheckInterruption();
    while (out_.size() < frames_.size()) {
      for (float& sample : block_) {
        sample = frames_[next_];
        next_ = (next_ + 1) % frames_.size();
      }
      session_.Process(block_.data(), block_.size() / kChannels);
      out_.insert(out_.end(), block_.begin(), block_.end());
    }
    const auto end = out_.begin() + static_cast<std::ptrdiff_t>(frames_.size());
    std::vector<float> period(out_.begin(), end);
    out_.erase(out_.begin(), end);
    return period;
  }

 private:
  EffectSession session_;
  std::vector<float> frames_;
  std::size_t next_ = 0;  // of frames_
  std::vector<float> block_;
  std::vector<float> out_;  // output that was not returned yet
};

Spectrum EarSpectrum(const SpectrumAnalysis& analysis, const std::vector<float>& stereo,
                     std::size_t ear) {
  std::vector<double> signal(kPeriod);
  for (std::size_t frame = 0; frame < kPeriod; ++frame) {
    signal[frame] = static_cast<double>(stereo[kChannels * frame + ear]);
  }
  return analysis.Forward(signal);
}

// Sum of `power` over a band of 1/48 octave, at low frequencies over the width of one bin.
// Of a bin at an edge, the part inside the band counts, so that a curve of narrow bands is smooth
// from bin to bin.
double BandPower(const Power& power, double freq_hz) {
  const double half_band = std::exp2(0.5 / ImageResponse::kBandsPerOctave);
  const double bin = freq_hz * kPeriod / kSampleRateHz;
  // Bin i lies between i and i + 1 here.
  const double low = std::min(bin / half_band + 0.5, bin);
  const double high = std::max(bin * half_band + 0.5, bin + 1);
  const auto clamp = [](double value) {
    return std::clamp(static_cast<std::size_t>(value), TestSignal::kFirstBin, TestSignal::kLastBin);
  };
  double sum = 0;
  for (std::size_t i = clamp(low); i <= clamp(high); ++i) {
    const auto begin = static_cast<double>(i);
    sum += power[i] * std::max(0.0, std::min(high, begin + 1) - std::max(low, begin));
  }
  return sum;
}

// The position of the largest magnitude of an impulse response, of which `ratio` is the spectrum. A
// parabola through the peak and its neighbours gives fractions of a frame.
double PeakFrame(const SpectrumAnalysis& analysis, const Spectrum& ratio) {
  const std::vector<double> impulse = analysis.Inverse(ratio);
  const auto at = [&](std::size_t frame) { return std::abs(impulse[frame % kPeriod]); };
  std::size_t peak = 0;
  for (std::size_t frame = 1; frame < kPeriod / 2; ++frame) {
    if (at(frame) > at(peak)) {
      peak = frame;
    }
  }
  const double before = at(peak + kPeriod - 1);
  const double after = at(peak + 1);
  const double bend = before - 2 * at(peak) + after;
  return static_cast<double>(peak) + (bend == 0 ? 0 : 0.5 * (before - after) / bend);
}

double TruePeak(const std::vector<float>& stereo, const upmix_lib::TruePeak& meter) {
  constexpr std::size_t kReach = upmix_lib::TruePeak::kReachFrames;
  constexpr std::size_t kChunk = upmix_lib::TruePeak::kChunkFrames;
  float peak = 0;
  for (std::size_t frame = kReach; frame + kChunk + kReach <= stereo.size() / kChannels;
       frame += kChunk) {
    peak = std::max(peak, meter.OfChunk(&stereo[kChannels * frame]));
  }
  return static_cast<double>(peak);
}

double FullScaleTruePeakDb(const EffectLibrary& library, const std::vector<Setting>& settings,
                           const TestSignal& signal) {
  constexpr int kPlayed = 3;  // 4 s: the peaks are largest before the level control has turned down
  Player player(library, settings, signal, 1 / signal.peak());
  const upmix_lib::TruePeak meter;
  double peak = 0;
  for (int i = 0; i < kPlayed; ++i) {
    peak = std::max(peak, TruePeak(player.Play(), meter));
  }
  return ToDb(peak);
}

double MeasureLatency(const EffectLibrary& library, const std::vector<Setting>& settings) {
  const TestSignal signal(Image::kCentre, Waveform::kSweep, ImageResponse::kRms);
  const SpectrumAnalysis analysis(kPeriod);
  Player player(library, settings, signal, 1, ChainMeasurement::kHostFrames);
  player.Play();
  player.Play();
  const std::vector<float> out = player.Play();
  Spectrum ratio(analysis.bins());
  for (std::size_t ear = 0; ear < 2; ++ear) {
    const Spectrum spectrum = EarSpectrum(analysis, out, ear);
    for (std::size_t bin = TestSignal::kFirstBin; bin <= TestSignal::kLastBin; ++bin) {
      ratio[bin] += spectrum[bin] / signal.left()[bin];
    }
  }
  return PeakFrame(analysis, ratio);
}

ImageResponse Measure(const EffectLibrary& library, const std::vector<Setting>& settings,
                      Image image) {
  const TestSignal signal(image, image == Image::kDiffuse ? Waveform::kNoise : Waveform::kSweep,
                          ImageResponse::kRms);
  const SpectrumAnalysis analysis(kPeriod);
  Player player(library, settings, signal, 1);
  for (std::size_t frames = 0;
       frames < ImageResponse::kSettlingSeconds * std::size_t{kSampleRateHz}; frames += kPeriod) {
    player.Play();
  }
  std::array<Spectrum, 2> mean{Spectrum(analysis.bins()), Spectrum(analysis.bins())};
  std::array<Power, 2> power{Power(analysis.bins()), Power(analysis.bins())};
  for (std::size_t i = 0; i < ImageResponse::kPeriods; ++i) {
    const std::vector<float> out = player.Play();
    for (std::size_t ear = 0; ear < 2; ++ear) {
      const Spectrum spectrum = EarSpectrum(analysis, out, ear);
      for (std::size_t bin = 0; bin < spectrum.size(); ++bin) {
        mean[ear][bin] += spectrum[bin] / double{ImageResponse::kPeriods};
        power[ear][bin] += std::norm(spectrum[bin]) / double{ImageResponse::kPeriods};
      }
    }
  }

  ImageResponse response;
  // One channel is silent: the power is that of the other.
  const double sounding = image == Image::kLeft ? 2 : 1;
  Power in(analysis.bins());
  Spectrum ratio(analysis.bins());
  double in_sum = 0;
  double out_sum = 0;
  double steady_sum = 0;
  for (std::size_t bin = TestSignal::kFirstBin; bin <= TestSignal::kLastBin; ++bin) {
    in[bin] = sounding * signal.BinPower(bin);
    in_sum += in[bin];
    out_sum += (power[0][bin] + power[1][bin]) / 2;
    steady_sum += (std::norm(mean[0][bin]) + std::norm(mean[1][bin])) / 2;
    ratio[bin] = (mean[0][bin] + mean[1][bin]) / signal.left()[bin];
  }
  response.level_db = PowerToDb(out_sum / in_sum);
  response.steady_share = out_sum > 0 ? steady_sum / out_sum : 0;
  response.arrival_frames = PeakFrame(analysis, ratio);
  for (std::size_t ear = 0; ear < 2; ++ear) {
    for (const double freq_hz : ResponseFrequencies()) {
      response.gain_db[ear].push_back(
          PowerToDb(BandPower(power[ear], freq_hz) / BandPower(in, freq_hz)));
    }
  }
  response.full_scale_true_peak_db = FullScaleTruePeakDb(library, settings, signal);
  return response;
}

}  // namespace

const std::vector<double>& ResponseFrequencies() {
  static const auto* const frequencies = new std::vector<double>(LogFrequencies(20.5, 19990, 478));
  return *frequencies;
}

std::vector<double> BandAverageDb(const std::function<double(double freq_hz)>& gain_db) {
  const TestSignal signal(Image::kCentre, Waveform::kSweep, ImageResponse::kRms);
  Power in(kPeriod / 2 + 1);
  Power out(in.size());
  for (std::size_t bin = TestSignal::kFirstBin; bin <= TestSignal::kLastBin; ++bin) {
    in[bin] = signal.BinPower(bin);
    out[bin] = in[bin] * std::pow(10.0, gain_db(TestSignal::BinHz(bin)) / 10);
  }
  std::vector<double> average_db;
  for (const double freq_hz : ResponseFrequencies()) {
    average_db.push_back(PowerToDb(BandPower(out, freq_hz) / BandPower(in, freq_hz)));
  }
  return average_db;
}

ChainMeasurement MeasureChain(const EffectLibrary& library, const std::vector<Setting>& settings) {
  ChainMeasurement measurement;
  for (const Image image : {Image::kCentre, Image::kLeft, Image::kDiffuse}) {
    measurement.images[static_cast<std::size_t>(image)] = Measure(library, settings, image);
  }
  measurement.latency_frames = MeasureProcessorLatency(library, settings);
  measurement.heard_latency_frames = MeasureLatency(library, settings);
  return measurement;
}

}  // namespace kelda::tools
