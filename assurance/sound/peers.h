// What a listener would pick instead: filters that Debian's ffmpeg has.
#ifndef KELDA_ASSURANCE_SOUND_PEERS_H_
#define KELDA_ASSURANCE_SOUND_PEERS_H_

#include <filesystem>

#include "assurance/sound/figure.h"

namespace kelda::sound {

// "surround": ffmpeg's upmix to 5.1, rendered by its filter `headphone` with the HRIRs of `hki`, so
// that both have the same ears; "crossfeed", "loudnorm" (to -16 LUFS), and "bypass". Its sounds
// pass through files in `scratch`. Throws std::runtime_error.
System MakePeer(const std::string& name, const std::filesystem::path& hki,
                const std::filesystem::path& scratch);

}  // namespace kelda::sound

#endif  // KELDA_ASSURANCE_SOUND_PEERS_H_
