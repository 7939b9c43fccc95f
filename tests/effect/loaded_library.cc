#include "tests/laboratory/effect_client.h"
#include "tools/framework/effect_library.h"

namespace kelda::test {

const audio_effect_library_t& Library() {
  static const tools::EffectLibrary library(KELDA_LIBRARY);
  return library.info();
}

}  // namespace kelda::test
