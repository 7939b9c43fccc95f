#include "changeover/history.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

namespace kelda::changeover {
namespace {

constexpr float kLargest = 32767.0f;
constexpr float kLoudest = 1e6f;  // what is beyond is no audio
constexpr float kQuietest = 1e-20f;

// ITU-R BS.1770-4: blocks of 400 ms; mean squares for -70 LUFS, and 10 LU below the blocks' mean.
constexpr uint64_t kBlockPeriods = 19;
constexpr float kGate = 1e-7f;
constexpr float kRelativeGate = 0.1f;

// BS.1770's weighting, within 0.5 dB: a shelf of 4 dB from 1.5 kHz on, where the means of 8 and of
// 16 frames end, and a high-pass at 38 Hz, which the means of 64 frames are enough for.
constexpr std::size_t kMeanBits = 3, kMean = 1u << kMeanBits, kPieceFrames = 64,
                      kMeans = kPieceFrames / kMean;
constexpr std::size_t kPiece = kChannels * kPieceFrames;
constexpr float kShelf = 1.51f;  // what 4 dB add

constexpr uint64_t kAround = 10;  // periods on each side, 0.45 s together

// What ends a programme: another one, louder by 6 dB for longer than a burst; or a pause, after
// which it takes about 4 s until the gain has risen for a quieter one.
constexpr float kJump = 4.0f;
constexpr std::size_t kJumpBlocks = 3, kPauseBlocks = 3, kRiseBlocks = 10;

}  // namespace

// Of the second order, 38.1 Hz, Q 0.5, by the bilinear transform at 750 Hz; transposed direct form
// II.
float History::LowCut::Process(float x) {
  constexpr float kGain = 0.741853f, kA1 = -1.445193f, kA2 = 0.522220f;
  const float y = kGain * x + state[0];
  state[0] = state[1] - 2 * kGain * x - kA1 * y;
  state[1] = kGain * x - kA2 * y;
  return y;
}

// Before it turns denormal.
void History::LowCut::DropTiny() {
  for (float& value : state) {
    value = std::fabs(value) < 1e-15f ? 0.0f : value;
  }
}

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
  const float step = audio ? largest / kLargest : 0.0f;
  int64_t energy = 0, low_energy = 0;  // of samples; of means of 8 and of 16 frames, half each
  float cut = 0.0f;                    // by the high-pass, of the energy of means of 64 frames
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
    int32_t means[kMeans][kChannels];
    int32_t low_sum = 0, sums[kChannels] = {};
    for (std::size_t mean = 0; mean < kMeans; ++mean) {
      int32_t frames[kMean] = {};  // both halves' samples, which a compiler adds as vectors
      for (std::size_t i = 0; i < kMean; ++i) {
        frames[i] =
            samples[kMean * kChannels * mean + i] + samples[kMean * kChannels * mean + kMean + i];
      }
      means[mean][0] = (frames[0] + frames[2] + (frames[4] + frames[6])) >> kMeanBits;
      means[mean][1] = (frames[1] + frames[3] + (frames[5] + frames[7])) >> kMeanBits;
    }
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
      for (std::size_t mean = 0; mean < kMeans; mean += 2) {
        const int32_t a = means[mean][channel], b = means[mean + 1][channel], both = (a + b) >> 1;
        low_sum += ((a * a) >> 8) + ((b * b) >> 8) + ((both * both) >> 7);
        sums[channel] += a + b;
      }
      const float low = step * static_cast<float>(sums[channel]) / static_cast<float>(kMeans);
      const float high = low_cut_[channel].Process(low);
      cut += low * low - high * high;
    }
    low_energy += low_sum;
    Word words[kPiece * sizeof(int16_t) / sizeof(Word)];
    std::memcpy(words, samples, sizeof(words));
    for (const Word word : words) {
      to++->store(word, std::memory_order_relaxed);
    }
  }
  for (LowCut& low_cut : low_cut_) {
    low_cut.DropTiny();
  }
  const auto all = static_cast<float>(energy), low = static_cast<float>(kMean * low_energy);
  const float weighted = step * step * 128 * (all + kShelf * (all - low)) - kPieceFrames * cut;
  steps_[number % kKept].store(step, std::memory_order_relaxed);
  powers_[number % kLevels].store(std::max(weighted, 0.0f) / kPeriodSamples,
                                  std::memory_order_relaxed);
  count_.store(number + 1, std::memory_order_release);
}

void History::Forget() {
  begin_.store(count(), std::memory_order_release);
  std::fill(std::begin(low_cut_), std::end(low_cut_), LowCut());
}

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
