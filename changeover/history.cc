#include "changeover/history.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelda::changeover {
namespace {

constexpr float kLargest = 32767.0f;
constexpr float kLoudest = 1e6f;  // what is beyond is no audio

// Mean squares: the gates of ITU-R BS.1770-4, -70 LUFS and 10 LU below the mean.
constexpr float kAbsoluteGate = 1e-7f;
constexpr float kRelativeGate = 0.1f;

}  // namespace

History::History() : words_(new std::atomic<Word>[kKept * kWords]()) {}

void History::Publish(const float* period) {
  float largest = 0, energy = 0;
  for (std::size_t i = 0; i < kPeriodSamples; ++i) {
    const float magnitude = std::fabs(period[i]);
    largest = magnitude > largest ? magnitude : largest;
    energy += period[i] * period[i];
  }
  const uint64_t number = count_.load(std::memory_order_relaxed);
  // A sum that is not finite has a sample in it that is not, or that is no audio.
  const bool audio = energy < kLoudest * kLoudest && largest > 0;
  const float scale = audio ? kLargest / largest : 0.0f;
  int16_t samples[kPeriodSamples];
  for (std::size_t i = 0; i < kPeriodSamples; ++i) {
    const float scaled = audio ? period[i] * scale : 0.0f;
    samples[i] = static_cast<int16_t>(static_cast<int>(scaled + std::copysign(0.5f, scaled)));
  }
  Word words[kWords];
  std::memcpy(words, samples, sizeof(words));
  std::atomic<Word>* const to = &words_[number % kKept * kWords];
  for (std::size_t i = 0; i < kWords; ++i) {
    to[i].store(words[i], std::memory_order_relaxed);
  }
  steps_[number % kKept].store(audio ? largest / kLargest : 0.0f, std::memory_order_relaxed);
  powers_[number % kLevels].store(audio ? energy / kPeriodSamples : 0.0f,
                                  std::memory_order_relaxed);
  count_.store(number + 1, std::memory_order_release);
}

void History::Forget() { begin_.store(count(), std::memory_order_release); }

bool History::Read(uint64_t number, float* period) const {
  const std::atomic<Word>* const from = &words_[number % kKept * kWords];
  Word words[kWords];
  for (std::size_t i = 0; i < kWords; ++i) {
    words[i] = from[i].load(std::memory_order_acquire);
  }
  const float step = steps_[number % kKept].load(std::memory_order_acquire);
  int16_t samples[kPeriodSamples];
  std::memcpy(samples, words, sizeof(words));
  for (std::size_t i = 0; i < kPeriodSamples; ++i) {
    period[i] = step * static_cast<float>(samples[i]);
  }
  // The one that is being published takes the place of the oldest; another to be safe.
  return count() + 1 < number + kKept;
}

float History::ProgrammeGain(uint64_t first, uint64_t end) const {
  const uint64_t last = count();
  const uint64_t start = std::max(begin(), last - std::min(last, kLevels - 1));
  const auto gated_mean = [&](uint64_t from, uint64_t to, float gate) {
    double sum = 0;
    int periods = 0;
    for (uint64_t number = from; number < to; ++number) {
      const float power = Power(number);
      sum += power > gate ? power : 0;
      periods += power > gate ? 1 : 0;
    }
    return periods > 0 ? static_cast<float>(sum / periods) : 0.0f;
  };
  const float all = gated_mean(start, last, kAbsoluteGate);
  const float programme = gated_mean(start, last, std::max(kAbsoluteGate, kRelativeGate * all));
  const float piece = gated_mean(first, end, kAbsoluteGate);
  return piece > 0 && programme > 0 ? std::sqrt(programme / piece) : 1.0f;
}

}  // namespace kelda::changeover
