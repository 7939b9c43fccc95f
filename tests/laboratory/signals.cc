#include "tests/laboratory/signals.h"

#include <ebur128.h>

#include <algorithm>
#include <complex>
#include <memory>
#include <numbers>
#include <random>
#include <stdexcept>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/transforms/fft.h"

namespace kelda::upmix_lib {
namespace {

constexpr std::size_t kSize = 8192, kBinCount = kSize / 2 + 1;
constexpr double kPi = std::numbers::pi, kRate = kSampleRateHz;

double HzOf(std::size_t bin) { return static_cast<double>(bin) * kRate / kSize; }

void ScaleToUnitPower(Signal& signal) {
  const auto gain = static_cast<float>(1.0 / std::sqrt(Power(signal)));
  for (float& sample : signal) {
    sample *= gain;
  }
}

struct Spectrum8192 {
  Signal re = Signal(kBinCount), im = Signal(kBinCount);
};

const RealFft& Fft() { return SharedRealFft<kSize>(); }

}  // namespace

double Db(double power) { return 10.0 * std::log10(std::max(power, 1e-30)); }

double Power(std::span<const float> signal, std::size_t skip) {
  double sum = 0.0;
  for (const float sample : signal.subspan(skip)) {
    sum += double{sample} * double{sample};
  }
  return sum / static_cast<double>(signal.size() - skip);
}

void AddTo(Signal& to, const Signal& from, float gain) {
  for (std::size_t n = 0; n < to.size(); ++n) {
    to[n] += gain * from[n];
  }
}

Planes Delayed(const Planes& planes, std::size_t frames) {
  Planes delayed(planes.size(), Signal(planes[0].size()));
  for (std::size_t p = 0; p < planes.size(); ++p) {
    std::copy(planes[p].begin(), planes[p].end() - static_cast<std::ptrdiff_t>(frames),
              delayed[p].begin() + static_cast<std::ptrdiff_t>(frames));
  }
  return delayed;
}

// Overlapped blocks of random spectra: phases are new every half block.
Signal PinkNoise(uint32_t seed, std::size_t frames, float low_hz, float high_hz) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  Signal noise(frames + kSize), block(kSize);
  Spectrum8192 spectrum;
  Signal scratch(static_cast<std::size_t>(Fft().scratch_floats()));
  for (std::size_t start = 0; start < frames; start += kSize / 2) {
    for (std::size_t k = 0; k < kBinCount; ++k) {
      const auto hz = static_cast<float>(HzOf(k));
      const float size = hz >= low_hz && hz <= high_hz ? 1.0f / std::sqrt(hz) : 0.0f;
      spectrum.re[k] = size * normal(random);
      spectrum.im[k] = size * normal(random);
    }
    Fft().Inverse(spectrum.re.data(), spectrum.im.data(), block.data(), scratch.data());
    for (std::size_t n = 0; n < kSize; ++n) {
      const double window = std::sin(kPi * (static_cast<double>(n) + 0.5) / kSize);
      noise[start + n] += static_cast<float>(window) * block[n];
    }
  }
  noise.resize(frames);
  ScaleToUnitPower(noise);
  return noise;
}

Signal Syllables(uint32_t seed, const Signal& signal) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform;
  Signal shaped = signal;
  float level = 0.0f, target = 0.0f;
  for (std::size_t n = 0, left = 0; n < shaped.size(); ++n, --left) {
    if (left == 0) {  // The next syllable, 80 to 300 ms, or a pause.
      left = static_cast<std::size_t>(kRate * (0.08f + 0.22f * uniform(random)));
      target = uniform(random) < 0.3f ? 0.0f : 0.2f + uniform(random);
    }
    level += (target - level) * (target > level ? 0.005f : 0.0007f);
    shaped[n] *= level;
  }
  ScaleToUnitPower(shaped);
  return shaped;
}

Signal Sine(double freq_hz, double amplitude, std::size_t frames, double phase) {
  Signal sine(frames);
  for (std::size_t n = 0; n < frames; ++n) {
    const double angle = 2.0 * kPi * freq_hz * static_cast<double>(n) / kRate + phase;
    sine[n] = static_cast<float>(amplitude * std::sin(angle));
  }
  return sine;
}

PannedMix MakePannedMix(const Signal& source, float angle_deg, float ambience_db, uint32_t seed) {
  const float angle = (45.0f + angle_deg) * std::numbers::pi_v<float> / 180.0f;
  const float ambience = std::pow(10.0f, ambience_db / 20.0f) * std::sqrt(0.5f);
  PannedMix mix{source, Planes(2, Signal(source.size())), {}};
  for (const uint32_t ear : {0u, 1u}) {
    AddTo(mix.ambience[ear], PinkNoise(seed + ear, source.size()), ambience);
  }
  mix.mix = mix.ambience;
  AddTo(mix.mix[0], source, std::sin(angle));
  AddTo(mix.mix[1], source, std::cos(angle));
  return mix;
}

double PowerCausedBy(const Signal& cause, const Signal& output, int delay_frames, float low_hz,
                     float high_hz) {
  Signal window(kSize), block(kSize), scratch(static_cast<std::size_t>(Fft().scratch_floats()));
  for (std::size_t n = 0; n < kSize; ++n) {
    window[n] =
        static_cast<float>(0.5 - 0.5 * std::cos(2.0 * kPi * static_cast<double>(n) / kSize));
  }
  const auto transform = [&](const float* from) {
    Spectrum8192 to;
    for (std::size_t n = 0; n < kSize; ++n) {
      block[n] = window[n] * from[n];
    }
    Fft().Forward(block.data(), to.re.data(), to.im.data(), scratch.data());
    return to;
  };
  std::vector<double> xx(kBinCount), yy(kBinCount);
  std::vector<std::complex<double>> xy(kBinCount);
  const auto delay = static_cast<std::size_t>(delay_frames);
  double count = 0.0;
  for (std::size_t start = kSampleRateHz; start + delay + kSize <= output.size();
       start += kSize / 2, count += 1.0) {
    const Spectrum8192 in = transform(&cause[start]), out = transform(&output[start + delay]);
    for (std::size_t k = 0; k < kBinCount; ++k) {
      const std::complex<double> x(in.re[k], in.im[k]), y(out.re[k], out.im[k]);
      xx[k] += std::norm(x);
      yy[k] += std::norm(y);
      xy[k] += std::conj(x) * y;
    }
  }
  // Hann windows that overlap by half are worth 18/19 of as many independent ones.
  const double independent = count * 18.0 / 19.0;
  double sum = 0.0;
  for (std::size_t k = 1; k + 1 < kBinCount; ++k) {
    if (HzOf(k) >= low_hz && HzOf(k) <= high_hz && xx[k] > 0.0) {
      sum += (std::norm(xy[k]) / xx[k] - yy[k] / independent) / (1.0 - 1.0 / independent);
    }
  }
  return std::max(2.0 * sum / (count * Power(window) * kSize * kSize), 0.0);
}

// ---- Programmes.

namespace {

std::size_t BlocksOf(double seconds) {
  return static_cast<std::size_t>(std::ceil(seconds * kRate / kBlockFrames)) * kBlockFrames;
}

void Require(int status) {
  if (status != EBUR128_SUCCESS) {
    throw std::runtime_error("the loudness meter failed");
  }
}

auto Meter(const Planes& stereo, std::size_t from, int mode) {
  std::vector<float> frames;
  for (std::size_t n = from; n < stereo[0].size(); ++n) {
    frames.insert(frames.end(), {stereo[0][n], stereo[1][n]});
  }
  const auto destroy = [](ebur128_state* state) { ebur128_destroy(&state); };
  std::unique_ptr<ebur128_state, decltype(destroy)> meter(ebur128_init(2, kSampleRateHz, mode),
                                                          destroy);
  Require(ebur128_add_frames_float(meter.get(), frames.data(), frames.size() / 2));
  return meter;
}

}  // namespace

Planes Music(double seconds, uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<> unit(0, 1);
  const std::size_t frames = BlocksOf(seconds);
  Planes music = {PinkNoise(seed + 100, frames), PinkNoise(seed + 200, frames)};
  double note_hz = 220, note_level = 0, stroke_level = 0, phase = 0, pan = 0.5;
  for (std::size_t n = 0; n < frames; ++n) {
    if (n % 12000 == 0) {  // four notes a second
      note_hz = 110 * std::pow(2.0, std::floor(24 * unit(random)) / 12);
      note_level = 0.3 + 0.7 * unit(random);
      pan = unit(random);
    }
    if (n % 24000 == 6000) {
      stroke_level = 0.15 + 0.15 * unit(random);  // two strokes
    }
    note_level *= 0.99993;
    stroke_level *= 0.9985;
    phase += 2 * kPi * note_hz / kRate;
    const double note = note_level * (std::sin(phase) + 0.4 * std::sin(2 * phase));
    for (const std::size_t ear : {0u, 1u}) {
      const double share = ear == 0 ? 1 - pan : pan;
      music[ear][n] = static_cast<float>(share * note + (0.03 + stroke_level) * music[ear][n]);
    }
  }
  return music;
}

Planes Speech(double seconds, uint32_t seed) {
  return Planes(2, Syllables(seed, PinkNoise(seed + 300, BlocksOf(seconds))));
}

double LoudnessLufs(const Planes& stereo, std::size_t from) {
  double lufs = 0;
  Require(ebur128_loudness_global(Meter(stereo, from, EBUR128_MODE_I).get(), &lufs));
  return lufs;
}

double TruePeakDb(const Planes& stereo) {
  const auto meter = Meter(stereo, 0, EBUR128_MODE_TRUE_PEAK);
  double left = 0, right = 0;
  Require(ebur128_true_peak(meter.get(), 0, &left));
  Require(ebur128_true_peak(meter.get(), 1, &right));
  return 20 * std::log10(std::max(left, right));
}

Planes AtLoudness(Planes stereo, double lufs) {
  const auto gain = static_cast<float>(std::pow(10.0, (lufs - LoudnessLufs(stereo)) / 20));
  for (Signal& signal : stereo) {
    for (float& sample : signal) {
      sample *= gain;
    }
  }
  return stereo;
}

}  // namespace kelda::upmix_lib
