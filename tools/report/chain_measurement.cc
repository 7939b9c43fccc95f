#include "tools/report/chain_measurement.h"

#include <algorithm>
#include <cmath>
#include <complex>

#include "tools/core/decibels.h"
#include "tools/core/interruption.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/processor_latency.h"
#include "tools/measure/frequency_response.h"
#include "upmix-lib/true_peak.h"

namespace kelda::tools {
namespace {

constexpr size_t kPeriod = TestSignal::kPeriod;
static_assert(kPeriod % kPeriodFrames == 0);

// Plays the sound, a host block of one period of the effect at a time: these pass without
// the latency of the rings.
class Player {
 public:
  Player(const EffectLibrary& library, const std::vector<Setting>& settings,
         const TestSignal& signal, float gain)
      : session_(library), frames_(signal.frames()) {
    for (float& sample : frames_) {
      sample *= gain;
    }
    session_.Enable();
    for (const Setting& setting : settings) {
      Apply(setting, &session_);
    }
  }

  // One period of the sound, as it comes out.
  std::vector<float> Play() {
    CheckInterruption();
    std::vector<float> out = frames_;
    for (size_t at = 0; at < kPeriod; at += kPeriodFrames) {
      session_.Process(&out[kChannels * at], kPeriodFrames);
    }
    return out;
  }

 private:
  EffectSession session_;
  std::vector<float> frames_;
};

Spectrum EarSpectrum(const SpectrumAnalysis& analysis, const std::vector<float>& stereo,
                     size_t ear) {
  std::vector<double> signal(kPeriod);
  for (size_t frame = 0; frame < kPeriod; ++frame) {
    signal[frame] = static_cast<double>(stereo[kChannels * frame + ear]);
  }
  return analysis.Forward(signal);
}

// Sum of `power` over a band of 1/12 octave; at low frequencies, of the one bin that is
// nearest.
double BandPower(const Power& power, double freq_hz) {
  const double half_band = std::exp2(1.0 / 24);
  const double bin = freq_hz * kPeriod / 48000;
  const auto clamp = [](double value) {
    return std::clamp(static_cast<size_t>(std::lround(value)), TestSignal::kFirstBin,
                      TestSignal::kLastBin);
  };
  double sum = 0;
  for (size_t i = clamp(bin / half_band); i <= clamp(bin * half_band); ++i) {
    sum += power[i];
  }
  return sum;
}

double PowerDb(double ratio) { return ToDb(std::sqrt(ratio)); }

// The frame of the largest magnitude of the impulse response that `ratio` is the spectrum of,
// to a fraction: a parabola through the peak and its neighbours.
double PeakFrame(const SpectrumAnalysis& analysis, const Spectrum& ratio) {
  const std::vector<double> impulse = analysis.Inverse(ratio);
  const auto at = [&](size_t frame) { return std::abs(impulse[frame % kPeriod]); };
  size_t peak = 0;
  for (size_t frame = 1; frame < kPeriod / 2; ++frame) {
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
  constexpr size_t kReach = upmix_lib::TruePeak::kReachFrames;
  constexpr size_t kChunk = upmix_lib::TruePeak::kChunkFrames;
  float peak = 0;
  for (size_t frame = kReach; frame + kChunk + kReach <= stereo.size() / kChannels;
       frame += kChunk) {
    peak = std::max(peak, meter.OfChunk(&stereo[kChannels * frame]));
  }
  return static_cast<double>(peak);
}

double FullScaleTruePeakDb(const EffectLibrary& library, const std::vector<Setting>& settings,
                           const TestSignal& signal) {
  constexpr int kPlayed = 3;  // 4 s: the worst is over when the level control has turned down
  Player player(library, settings, signal, 1 / signal.peak());
  const upmix_lib::TruePeak meter;
  double peak = 0;
  for (int i = 0; i < kPlayed; ++i) {
    peak = std::max(peak, TruePeak(player.Play(), meter));
  }
  return ToDb(peak);
}

ImageResponse Measure(const EffectLibrary& library, const std::vector<Setting>& settings,
                      Image image) {
  const TestSignal signal(image, image == Image::kDiffuse ? Waveform::kNoise : Waveform::kSweep,
                          ImageResponse::kRms);
  const SpectrumAnalysis analysis(kPeriod);
  Player player(library, settings, signal, 1);
  for (size_t frames = 0; frames < ImageResponse::kSettlingSeconds * size_t{kSampleRateHz};
       frames += kPeriod) {
    player.Play();
  }
  std::array<Spectrum, 2> mean{Spectrum(analysis.bins()), Spectrum(analysis.bins())};
  std::array<Power, 2> power{Power(analysis.bins()), Power(analysis.bins())};
  for (size_t i = 0; i < ImageResponse::kPeriods; ++i) {
    const std::vector<float> out = player.Play();
    for (size_t ear = 0; ear < 2; ++ear) {
      const Spectrum spectrum = EarSpectrum(analysis, out, ear);
      for (size_t bin = 0; bin < spectrum.size(); ++bin) {
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
  for (size_t bin = TestSignal::kFirstBin; bin <= TestSignal::kLastBin; ++bin) {
    in[bin] = sounding * signal.BinPower(bin);
    in_sum += in[bin];
    out_sum += (power[0][bin] + power[1][bin]) / 2;
    steady_sum += (std::norm(mean[0][bin]) + std::norm(mean[1][bin])) / 2;
    ratio[bin] = (mean[0][bin] + mean[1][bin]) / signal.left()[bin];
  }
  response.level_db = PowerDb(out_sum / in_sum);
  response.steady_share = out_sum > 0 ? steady_sum / out_sum : 0;
  response.arrival_frames = PeakFrame(analysis, ratio);
  for (size_t ear = 0; ear < 2; ++ear) {
    for (const double freq_hz : ResponseFrequencies()) {
      response.gain_db[ear].push_back(
          PowerDb(BandPower(power[ear], freq_hz) / BandPower(in, freq_hz)));
    }
  }
  response.full_scale_true_peak_db = FullScaleTruePeakDb(library, settings, signal);
  return response;
}

}  // namespace

const std::vector<double>& ResponseFrequencies() {
  static const auto* const frequencies = new std::vector<double>(LogFrequencies(20.5, 19990, 120));
  return *frequencies;
}

std::vector<double> BandAverageDb(const std::function<double(double freq_hz)>& gain_db) {
  const TestSignal signal(Image::kCentre, Waveform::kSweep, ImageResponse::kRms);
  Power in(kPeriod / 2 + 1);
  Power out(in.size());
  for (size_t bin = TestSignal::kFirstBin; bin <= TestSignal::kLastBin; ++bin) {
    in[bin] = signal.BinPower(bin);
    out[bin] = in[bin] * std::pow(10.0, gain_db(TestSignal::BinHz(bin)) / 10);
  }
  std::vector<double> average_db;
  for (const double freq_hz : ResponseFrequencies()) {
    average_db.push_back(PowerDb(BandPower(out, freq_hz) / BandPower(in, freq_hz)));
  }
  return average_db;
}

ChainMeasurement MeasureChain(const EffectLibrary& library, const std::vector<Setting>& settings) {
  ChainMeasurement measurement;
  for (const Image image : {Image::kCentre, Image::kLeft, Image::kDiffuse}) {
    measurement.images[static_cast<size_t>(image)] = Measure(library, settings, image);
  }
  measurement.latency_frames = MeasureProcessorLatency(library, settings);
  return measurement;
}

}  // namespace kelda::tools
