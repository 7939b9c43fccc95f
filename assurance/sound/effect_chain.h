// The effect with a signal library of one's choice.
#ifndef KELDA_ASSURANCE_SOUND_EFFECT_CHAIN_H_
#define KELDA_ASSURANCE_SOUND_EFFECT_CHAIN_H_

#include <filesystem>
#include <string>

#include "assurance/sound/sound_file.h"
#include "tools/framework/effect_library.h"

namespace kelda::sound {

class EffectChain {
 public:
  // `effect` uses the signal library that is loaded already, and `tuning`. Throws Failure.
  EffectChain(const std::filesystem::path& effect, const std::filesystem::path& tuning);

  // What a listener hears of `stereo` on wired headphones with standard ears in `mode`, in line
  // with it: in blocks of one period, which pass without fades.
  Planes Render(const Planes& stereo, const std::string& mode) const;

  // The same in blocks of 20 ms, with the fades, the mode changing before frame `change`.
  Planes Render(const Planes& stereo, const std::string& from, const std::string& to,
                std::size_t change) const;

 private:
  tools::EffectLibrary library_;
};

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_EFFECT_CHAIN_H_
