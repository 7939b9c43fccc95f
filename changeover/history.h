// The last periods of a stream's input, for the worker, and how loud it was before them.
#ifndef KELDA_CHANGEOVER_HISTORY_H_
#define KELDA_CHANGEOVER_HISTORY_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "changeover/instance.h"
#include "platform/nonblocking.h"

namespace kelda::changeover {

// The audio thread publishes period after period; the worker reads those that are not too old,
// while more are published. A sample has 16 bits, below the largest of its period: so much less
// than 0.01 % of that is lost. A period with a sample that is not finite, or beyond +120 dBFS, is
// kept as silence.
class History {
 public:
  // How much is rolled in at most, and how much is kept, so that the worker has time.
  static constexpr uint64_t kRolledIn = 141;  // 3.0 s
  static constexpr uint64_t kKept = kRolledIn + 47;
  static constexpr uint64_t kLevels = 1406;  // 30 s

  History();

  // Audio.
  void Publish(const float* period) KELDA_NONBLOCKING;

  // Forgets what was published. While nothing is published.
  void Forget();

  // Periods published so far, forgotten ones included. Any thread.
  uint64_t count() const KELDA_NONBLOCKING { return count_.load(std::memory_order_acquire); }
  // The first that is not forgotten. Any thread.
  uint64_t begin() const { return begin_.load(std::memory_order_acquire); }

  // Writes period `number`, below count(), interleaved. Returns false if it was overwritten
  // meanwhile. Any thread.
  bool Read(uint64_t number, float* period) const KELDA_NONBLOCKING;

  // The weighted mean square of the programme within the last `window` periods, at most kLevels, as
  // a level control takes it: by the gated mean of ITU-R BS.1770-4, with nearly its frequency
  // weighting, from the last jump or pause on. 0 if there is none. Any thread.
  float ProgrammePower(uint64_t window) const;

  // The gain that brings period `number` to the weighted mean square `power`, by that of what is
  // around it, so that it keeps its gaps and attacks: 10 periods on each side, which are published.
  // 1 if there is nothing to compare. Any thread.
  float GainTo(float power, uint64_t number) const;

 private:
  // The high-pass of BS.1770's weighting, for means of 64 frames.
  struct LowCut {
    float state[2] = {};
    float Process(float x) KELDA_NONBLOCKING;
    void DropTiny() KELDA_NONBLOCKING;
  };

  using Word = std::uintptr_t;  // which every processor of ours writes at once
  static constexpr std::size_t kWords = kPeriodSamples * sizeof(int16_t) / sizeof(Word);

  float Power(uint64_t number) const {
    return powers_[number % kLevels].load(std::memory_order_relaxed);
  }

  std::atomic<uint64_t> count_{0}, begin_{0};
  std::unique_ptr<std::atomic<Word>[]> words_;        // kKept periods, cyclic
  std::array<std::atomic<float>, kKept> steps_{};     // of 16 bits
  std::array<std::atomic<float>, kLevels> powers_{};  // weighted mean squares
  LowCut low_cut_[kChannels];                         // the audio thread's
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_HISTORY_H_
