// The sizes of the blocks in which the host hands over its audio.
#ifndef KELDA_TOOLS_FRAMEWORK_BLOCK_SIZES_H_
#define KELDA_TOOLS_FRAMEWORK_BLOCK_SIZES_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string_view>

#include "platform/audio_format.h"

namespace kelda::tools {

// The effect's period. A host block of exactly this size takes a direct path
// through the effect, without added latency.
inline constexpr std::size_t kPeriodFrames = kelda::kPeriodFrames;
inline constexpr std::size_t kMaxBlockFrames = 65536;

struct BlockRange {
  std::size_t min_frames;
  std::size_t max_frames;
  bool random() const { return min_frames != max_frames; }
};

// Reads "N" or "random[:MIN-MAX]", 1 to 65536 frames each. Throws Failure (usage).
BlockRange ParseBlockRange(std::string_view text);

// One fixed size, or a random sequence, the same for the same `seed`. Random sequences leave out
// kPeriodFrames: among other blocks, a block of this size would overtake the audio that waits in
// the effect's rings. A host with one period never does that.
class BlockSizes {
 public:
  BlockSizes(BlockRange range, uint64_t seed) : range_(range), random_(seed) {}
  std::size_t Next();

 private:
  BlockRange range_;
  std::mt19937_64 random_;  // the same sequence with every standard library
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_BLOCK_SIZES_H_
