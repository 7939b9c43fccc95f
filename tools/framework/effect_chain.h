// What a listener hears of a sound through the effect: the whole of it, from silence on.
#ifndef KELDA_TOOLS_FRAMEWORK_EFFECT_CHAIN_H_
#define KELDA_TOOLS_FRAMEWORK_EFFECT_CHAIN_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"

namespace kelda::tools {

class EffectChain {
 public:
  using Stereo = std::vector<std::vector<float>>;  // planar, 48 kHz, left and right

  // Each sound is played by a new instance with `settings`, which the mode follows. `library`
  // outlives this.
  EffectChain(const EffectLibrary& library, std::vector<Setting> settings)
      : library_(library), settings_(std::move(settings)) {}

  // `stereo` in `mode`, as long as it and in line with it: in blocks of one period, which pass
  // without fades. Throws Failure (refused) and Interrupted, as the other does.
  Stereo Render(const Stereo& stereo, const std::string& mode) const;

  // The same in blocks of 20 ms, with the fades and as late as they make it, the mode changing
  // before frame `change`.
  Stereo Render(const Stereo& stereo, const std::string& from, const std::string& to,
                std::size_t change) const;

 private:
  Stereo Play(const Stereo& stereo, std::size_t block, const std::string& from,
              const std::string& to, std::size_t change) const;

  const EffectLibrary& library_;
  std::vector<Setting> settings_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_EFFECT_CHAIN_H_
