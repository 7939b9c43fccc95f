#include "assurance/sound/effect_chain.h"

#include <android/log.h>
#include <cutils/properties.h>

#include "tools/framework/effect_session.h"
#include "tools/framework/installation.h"
#include "tools/framework/processor_latency.h"
#include "tools/framework/setting.h"

namespace kelda::sound {
namespace {

tools::EffectLibrary Load(const std::filesystem::path& effect,
                          const std::filesystem::path& tuning) {
  property_set("vendor.kelda.effect", "1");
  __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
  tools::UseTuningDirectory(tuning);
  return tools::EffectLibrary(effect);
}

Planes Play(const tools::EffectLibrary& library, const Planes& stereo, std::size_t block,
            const std::string& from, const std::string& to, std::size_t change) {
  tools::EffectSession session(library);
  session.Enable();
  const auto apply = [&](const std::string& setting) {
    tools::Apply(tools::ParseSetting(setting), &session);
  };
  apply("device=wired");
  apply("mode=" + from);
  std::vector<float> samples = Interleaved(stereo);
  samples.resize((samples.size() / 2 + block - 1) / block * block * 2);
  for (std::size_t frame = 0; 2 * frame < samples.size(); frame += block) {
    if (from != to && frame <= change && change < frame + block) {
      apply("mode=" + to);
    }
    session.Process(&samples[2 * frame], block);
  }
  Planes out(2, Signal(samples.size() / 2));
  for (std::size_t i = 0; i < samples.size(); ++i) {
    out[i % 2][i / 2] = samples[i];
  }
  return out;
}

}  // namespace

EffectChain::EffectChain(const std::filesystem::path& effect, const std::filesystem::path& tuning)
    : library_(Load(effect, tuning)) {}

Planes EffectChain::Render(const Planes& stereo, const std::string& mode) const {
  const auto latency = tools::MeasureProcessorLatency(
      library_, {tools::ParseSetting("device=wired"), tools::ParseSetting("mode=" + mode)});
  Planes longer = stereo;
  for (Signal& channel : longer) {
    channel.resize(channel.size() + static_cast<std::size_t>(latency));
  }
  Planes out = Play(library_, longer, 1024, mode, mode, 0);
  for (Signal& channel : out) {
    channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(latency));
    channel.resize(stereo[0].size());
  }
  return out;
}

Planes EffectChain::Render(const Planes& stereo, const std::string& from, const std::string& to,
                           std::size_t change) const {
  Planes out = Play(library_, stereo, 960, from, to, change);
  for (Signal& channel : out) {
    channel.resize(stereo[0].size());
  }
  return out;
}

}  // namespace kelda::sound
