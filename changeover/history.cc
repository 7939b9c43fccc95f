#include "changeover/history.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelda::changeover {
namespace {

constexpr float kLargest = 32767.0f;
constexpr float kLoudest = 1e6f;  // what is beyond is no audio
constexpr float kQuietest = 1e-20f;

// Mean squares: the gates of ITU-R BS.1770-4, -70 LUFS and 10 LU below the mean.
constexpr float kAbsoluteGate = 1e-7f;
constexpr float kRelativeGate = 0.1f;

}  // namespace

History::History() : words_(new std::atomic<Word>[kKept * kWords]()) {}

void History::Publish(const float* period) {
  // Magnitudes compare as their bits do, and sums of integers in any order are the same: so a
  // compiler makes vectors of both loops.
  uint32_t largest_bits = 0;
  for (std::size_t i = 0; i < kPeriodSamples; ++i) {
    uint32_t bits;
    std::memcpy(&bits, period + i, sizeof(bits));
    largest_bits = std::max(largest_bits, bits & 0x7FFFFFFF);
  }
  float largest;
  std::memcpy(&largest, &largest_bits, sizeof(largest));
  const bool audio = largest > kQuietest && largest < kLoudest;  // not if it is no number
  const float scale = audio ? kLargest / largest : 0.0f;
  const uint64_t number = count_.load(std::memory_order_relaxed);
  std::atomic<Word>* to = &words_[number % kKept * kWords];
  int64_t energy = 0;
  constexpr std::size_t kPiece = 128;
  for (std::size_t first = 0; first < kPeriodSamples; first += kPiece) {
    int16_t samples[kPiece] = {};
    if (audio) {
      int32_t sum = 0;  // of 128 squares of 30 bits, without their lowest
      for (std::size_t i = 0; i < kPiece; ++i) {
        const float scaled = period[first + i] * scale;
        const int sample = static_cast<int>(scaled + (scaled < 0 ? -0.5f : 0.5f));
        samples[i] = static_cast<int16_t>(sample);
        sum += (sample * sample) >> 7;
      }
      energy += sum;
    }
    Word words[kPiece * sizeof(int16_t) / sizeof(Word)];
    std::memcpy(words, samples, sizeof(words));
    for (const Word word : words) {
      to++->store(word, std::memory_order_relaxed);
    }
  }
  const float step = audio ? largest / kLargest : 0.0f;
  const float mean = static_cast<float>(energy) * 128 / kPeriodSamples;
  steps_[number % kKept].store(step, std::memory_order_relaxed);
  powers_[number % kLevels].store(step * step * mean, std::memory_order_relaxed);
  count_.store(number + 1, std::memory_order_release);
}

void History::Forget() { begin_.store(count(), std::memory_order_release); }

bool History::Read(uint64_t number, float* period) const {
  const std::atomic<Word>* const from = words_.get() + number % kKept * kWords;
  Word words[kWords] = {};
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
