#include "tests/upmix-lib/mixes.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "upmix-lib/fft.h"

namespace kelda::upmix_lib {
namespace {

constexpr int kSize = 8192;
constexpr int kSecond = 48000;

void ScaleToUnitPower(Signal& signal) {
  const auto gain = static_cast<float>(1.0 / std::sqrt(Power(signal, 0)));
  for (float& sample : signal) {
    sample *= gain;
  }
}

}  // namespace

double Db(double power) { return 10.0 * std::log10(std::max(power, 1e-30)); }

double Power(const Signal& signal, int skip) {
  double sum = 0.0;
  for (size_t n = static_cast<size_t>(skip); n < signal.size(); ++n) {
    sum += static_cast<double>(signal[n]) * signal[n];
  }
  return sum / static_cast<double>(signal.size() - static_cast<size_t>(skip));
}

void AddTo(Signal& to, const Signal& from, float gain) {
  for (size_t n = 0; n < to.size(); ++n) {
    to[n] += gain * from[n];
  }
}

// Overlapped blocks of random spectra: phases are new every half block.
Signal PinkNoise(uint32_t seed, int frames, float low_hz, float high_hz) {
  const RealFft& fft = SharedRealFft<kSize>();
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  const auto length = static_cast<size_t>(frames);
  Signal noise(length + kSize);
  std::vector<float> re(kSize / 2 + 1), im(re.size()), block(kSize);
  std::vector<float> scratch(static_cast<size_t>(fft.scratch_floats()));
  for (int start = 0; start < frames; start += kSize / 2) {
    for (size_t k = 0; k < re.size(); ++k) {
      const float hz = static_cast<float>(k) * 48000.0f / kSize;
      const float size = hz >= low_hz && hz <= high_hz ? 1.0f / std::sqrt(hz) : 0.0f;
      re[k] = size * normal(random);
      im[k] = size * normal(random);
    }
    fft.Inverse(re.data(), im.data(), block.data(), scratch.data());
    for (int n = 0; n < kSize; ++n) {
      const auto window = static_cast<float>(std::sin(std::numbers::pi * (n + 0.5) / kSize));
      const int frame = start + n;
      noise[static_cast<size_t>(frame)] += window * block[static_cast<size_t>(n)];
    }
  }
  noise.resize(length);
  ScaleToUnitPower(noise);
  return noise;
}

Signal Syllables(uint32_t seed, const Signal& signal) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> uniform;
  Signal shaped = signal;
  float level = 0.0f, target = 0.0f;
  for (size_t n = 0, left = 0; n < shaped.size(); ++n, --left) {
    if (left == 0) {  // The next syllable, 80 to 300 ms, or a pause.
      left = static_cast<size_t>(kSecond * (0.08f + 0.22f * uniform(random)));
      target = uniform(random) < 0.3f ? 0.0f : 0.2f + uniform(random);
    }
    level += (target - level) * (target > level ? 0.005f : 0.0007f);
    shaped[n] *= level;
  }
  ScaleToUnitPower(shaped);
  return shaped;
}

PannedMix MakePannedMix(const Signal& source, float angle_deg, float ambience_db, uint32_t seed) {
  const int frames = static_cast<int>(source.size());
  const float angle = (45.0f + angle_deg) * std::numbers::pi_v<float> / 180.0f;
  const float ambience = std::pow(10.0f, ambience_db / 20.0f) * std::sqrt(0.5f);
  PannedMix mix{source,
                Signal(source.size()),
                Signal(source.size()),
                {Signal(source.size()), Signal(source.size())}};
  AddTo(mix.left_ambience, PinkNoise(seed, frames), ambience);
  AddTo(mix.right_ambience, PinkNoise(seed + 1, frames), ambience);
  mix.mix = {mix.left_ambience, mix.right_ambience};
  AddTo(mix.mix.left, source, std::sin(angle));
  AddTo(mix.mix.right, source, std::cos(angle));
  return mix;
}

double PowerCausedBy(const Signal& cause, const Signal& output, int delay_frames, float low_hz,
                     float high_hz) {
  const RealFft& fft = SharedRealFft<kSize>();
  constexpr size_t kBinCount = kSize / 2 + 1;
  std::vector<float> window(kSize), block(kSize),
      scratch(static_cast<size_t>(fft.scratch_floats()));
  std::vector<float> cause_re(kBinCount), cause_im(kBinCount), re(kBinCount), im(kBinCount);
  std::vector<double> xx(kBinCount), yy(kBinCount), xy_re(kBinCount), xy_im(kBinCount);
  double window_power = 0.0;
  for (size_t n = 0; n < window.size(); ++n) {
    window[n] = static_cast<float>(
        0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * static_cast<double>(n) / kSize));
    window_power += static_cast<double>(window[n]) * window[n];
  }
  const auto transform = [&](const float* from, std::vector<float>& to_re,
                             std::vector<float>& to_im) {
    for (size_t n = 0; n < block.size(); ++n) {
      block[n] = window[n] * from[n];
    }
    fft.Forward(block.data(), to_re.data(), to_im.data(), scratch.data());
  };
  const auto delay = static_cast<size_t>(delay_frames);
  double count = 0.0;
  for (size_t start = kSecond; start + delay + kSize <= output.size(); start += kSize / 2) {
    transform(&cause[start], cause_re, cause_im);
    transform(&output[start + delay], re, im);
    for (size_t k = 0; k < kBinCount; ++k) {
      const double a = cause_re[k], b = cause_im[k], c = re[k], d = im[k];
      xx[k] += a * a + b * b;
      yy[k] += c * c + d * d;
      xy_re[k] += a * c + b * d;
      xy_im[k] += a * d - b * c;
    }
    count += 1.0;
  }
  // Hann windows that overlap by half are worth 18/19 of as many independent ones.
  const double independent = count * 18.0 / 19.0;
  double sum = 0.0;
  for (size_t k = 1; k + 1 < kBinCount; ++k) {
    const double hz = static_cast<double>(k) * 48000.0 / kSize;
    if (hz >= low_hz && hz <= high_hz && xx[k] > 0.0) {
      const double related = (xy_re[k] * xy_re[k] + xy_im[k] * xy_im[k]) / xx[k];
      sum += (related - yy[k] / independent) / (1.0 - 1.0 / independent);
    }
  }
  return std::max(2.0 * sum / (count * window_power * kSize), 0.0);
}

int LatencyFrames(const Signal& impulse, const Signal& out) {
  int best = -1;
  double peak = 0.0;
  for (int lag = 0; lag < 1000; ++lag) {
    double sum = 0.0;
    for (size_t n = 0; n + static_cast<size_t>(lag) < out.size(); ++n) {
      sum += static_cast<double>(impulse[n]) * out[n + static_cast<size_t>(lag)];
    }
    if (std::fabs(sum) > peak) {
      peak = std::fabs(sum);
      best = lag;
    }
  }
  return best;
}

Signal BandLimitedImpulse(int frames, int at) {
  Signal impulse(static_cast<size_t>(frames));
  for (int n = -32; n <= 32; ++n) {
    const int frame = at + n;
    const double x = 0.5 * std::numbers::pi * n;  // A quarter of the sample rate.
    const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * n / 33.0);
    impulse[static_cast<size_t>(frame)] =
        static_cast<float>(window * (n == 0 ? 1.0 : std::sin(x) / x));
  }
  return impulse;
}

}  // namespace kelda::upmix_lib
