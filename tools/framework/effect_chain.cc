#include "tools/framework/effect_chain.h"

#include "tools/core/interruption.h"
#include "tools/framework/block_sizes.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/processor_latency.h"

namespace kelda::tools {

EffectChain::Stereo EffectChain::Play(const Stereo& stereo, std::size_t block,
                                      const std::string& from, const std::string& to,
                                      std::size_t change) const {
  EffectSession session(library_);
  session.Enable();
  for (const Setting& setting : settings_) {
    Apply(setting, &session);
  }
  Apply(ParseSetting("mode=" + from), &session);
  const std::size_t frames = stereo[0].size();
  Stereo out(kChannels, std::vector<float>(frames));
  std::vector<float> samples(kChannels * block);
  for (std::size_t first = 0; first < frames; first += block) {
    CheckInterruption();
    if (from != to && first <= change && change < first + block) {
      Apply(ParseSetting("mode=" + to), &session);
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const std::size_t frame = first + i / kChannels;
      samples[i] = frame < frames ? stereo[i % kChannels][frame] : 0;
    }
    session.Process(samples.data(), block);
    for (std::size_t i = 0; i < samples.size() && first + i / kChannels < frames; ++i) {
      out[i % kChannels][first + i / kChannels] = samples[i];
    }
  }
  return out;
}

EffectChain::Stereo EffectChain::Render(const Stereo& stereo, const std::string& mode) const {
  std::vector<Setting> settings = settings_;
  settings.push_back(ParseSetting("mode=" + mode));
  const auto latency = MeasureProcessorLatency(library_, settings);
  Stereo longer = stereo;
  for (std::vector<float>& channel : longer) {
    channel.resize(channel.size() + static_cast<std::size_t>(latency));
  }
  Stereo out = Play(longer, kPeriodFrames, mode, mode, 0);
  for (std::vector<float>& channel : out) {
    channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(latency));
  }
  return out;
}

EffectChain::Stereo EffectChain::Render(const Stereo& stereo, const std::string& from,
                                        const std::string& to, std::size_t change) const {
  constexpr std::size_t kHostFrames = 960;
  return Play(stereo, kHostFrames, from, to, change);
}

}  // namespace kelda::tools
