#include "tests/laboratory/effect_client.h"

extern "C" audio_effect_library_t AUDIO_EFFECT_LIBRARY_INFO_SYM;

namespace kelda::test {

const audio_effect_library_t& Library() { return AUDIO_EFFECT_LIBRARY_INFO_SYM; }

}  // namespace kelda::test
