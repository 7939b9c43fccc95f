#include "changeover/history.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelda::changeover {
namespace {

constexpr float kLargest = 32767.0f;
constexpr float kLoudest = 1e6f;  // what is beyond is no audio
constexpr float kQuietest = 1e-20f;

// ITU-R BS.1770-4: blocks of 400 ms; mean squares for -70 LUFS, and 10 LU below the blocks' mean.
constexpr uint64_t kBlockPeriods = 19;
constexpr float kGate = 1e-7f;
constexpr float kRelativeGate = 0.1f;

constexpr uint64_t kAround = 10;  // periods on each side, 0.45 s together

// What ends a programme: another one, louder by 6 dB for longer than a burst; or a pause, after
// which it takes about 4 s until the gain has risen for a quieter one.
constexpr float kJump = 4.0f;
constexpr std::size_t kJumpBlocks = 3, kPauseBlocks = 3, kRiseBlocks = 10;

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

float History::ProgrammePower(uint64_t window) const {
  std::array<float, kLevels / kBlockPeriods> blocks{};  // mean squares
  const uint64_t last = count();
  const auto size =
      static_cast<std::size_t>(std::min({last - begin(), window, kLevels - 1}) / kBlockPeriods);
  for (std::size_t i = 0; i < size; ++i) {
    const uint64_t first = last - (size - i) * kBlockPeriods;
    for (uint64_t number = first; number < first + kBlockPeriods; ++number) {
      blocks[i] += Power(number) / kBlockPeriods;
    }
  }
  const auto mean = [&blocks](std::size_t first, std::size_t end, float gate) {
    float sum = 0, loud = 0;
    for (std::size_t i = first; i < end; ++i) {
      sum += blocks[i] > gate ? blocks[i] : 0;
      loud += blocks[i] > gate ? 1.0f : 0.0f;
    }
    return loud > 0 ? sum / loud : 0.0f;
  };
  const auto all_of_next = [&](std::size_t first, std::size_t how_many, const auto& condition) {
    const auto from = blocks.begin() + static_cast<std::ptrdiff_t>(first);
    return std::all_of(from, from + static_cast<std::ptrdiff_t>(how_many), condition);
  };
  std::size_t start = 0;  // of the programme
  for (std::size_t i = 1; i + kJumpBlocks <= size; ++i) {
    const float before = mean(start, i, kGate);
    const bool jump = before > 0 && all_of_next(i, kJumpBlocks, [before](float block) {
                        return block > kJump * before;
                      });
    const bool pause = size - i > kRiseBlocks + kPauseBlocks &&
                       all_of_next(i, kPauseBlocks, [](float block) { return block <= kGate; });
    start = jump || pause ? i : start;
  }
  return mean(start, size, std::max(kGate, kRelativeGate * mean(start, size, kGate)));
}

float History::GainTo(float power, uint64_t number) const {
  const uint64_t first = std::max(begin(), number - std::min(number, kAround));
  float sum = 0;
  for (uint64_t i = first; i <= number + kAround; ++i) {
    sum += Power(i);
  }
  const float mean = sum / static_cast<float>(number + kAround + 1 - first);
  return power > 0 && mean > kGate ? std::sqrt(power / mean) : 1.0f;
}

}  // namespace kelda::changeover
