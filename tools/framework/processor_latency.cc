#include "tools/framework/processor_latency.h"

#include <cstddef>
#include <random>

#include "tools/framework/block_sizes.h"
#include "tools/framework/side_instance.h"

namespace kelda::tools {
namespace {

constexpr float kNoisePeak = 0.1f;

void FillWithNoise(std::mt19937* random, std::vector<float>* block) {
  for (float& sample : *block) {
    const auto unit = static_cast<float>((*random)() >> 8) / static_cast<float>(1 << 24);
    sample = kNoisePeak * (2.0f * unit - 1.0f);
  }
}

}  // namespace

int64_t MeasureProcessorLatency(const EffectLibrary& library,
                                const std::vector<Setting>& settings) {
  const SideInstanceScope scope;
  EffectSession session(library);
  session.Enable();
  for (const Setting& setting : settings) {
    if (!TouchesBuffering(setting)) {  // a reset would cancel the fade
      Apply(setting, &session);
    }
  }
  // Blocks of one period do not start the pending fade. They fill the processors, so that
  // afterwards only the fade makes zeros.
  constexpr int kSettlingPeriods = 8;
  std::mt19937 random;
  std::vector<float> block(kPeriodFrames * kChannels);
  for (int i = 0; i < kSettlingPeriods; ++i) {
    FillWithNoise(&random, &block);
    session.Process(block.data(), kPeriodFrames);
  }
  // A block of several whole periods is delivered at once, and starts the fade.
  constexpr std::size_t kFadedFrames = 3 * kPeriodFrames;
  block.resize(kFadedFrames * kChannels);
  FillWithNoise(&random, &block);
  session.Process(block.data(), kFadedFrames);
  int64_t zeros = 0;
  while (zeros < static_cast<int64_t>(kFadedFrames)) {
    const float* frame = &block[kChannels * static_cast<std::size_t>(zeros)];
    if (frame[0] != 0.0f || frame[1] != 0.0f) {
      // The last zero is the fade's first frame.
      return zeros == 0 ? 0 : zeros - 1;
    }
    ++zeros;
  }
  return 0;  // all silent: there is no latency to measure
}

}  // namespace kelda::tools
