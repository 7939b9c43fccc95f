// One instance of the effect, as the framework holds it.
#ifndef KELDA_EFFECT_INSTANCE_H_
#define KELDA_EFFECT_INSTANCE_H_

#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstdint>

#include "engine/kelda_upmix.h"

namespace kelda {

enum class EffectState : int32_t {
  Uninitialized = 0,  // released: everything is refused
  Initialized = 1,    // takes commands, does not process
  Enabled = 2,        // processes
};

struct effect_context_s {
  EffectState state;
  KeldaUpmix* engine;       // owned; null only if Initialized, after memory ran out
  uint32_t enableCount;     // accepted enable commands
  uint32_t disableCount;    // accepted disable commands
  uint32_t setConfigCount;  // configurations of the right size, accepted or not
};

// An effect_handle_t points at this: the interface comes first.
struct effect_module_s {
  const effect_interface_s* itfe;
  effect_config_t config;  // last accepted
  effect_context_s context;
};

static_assert(offsetof(effect_module_s, itfe) == 0);

// Sizes that the framework's ABI fixes, in a 64-bit and in a 32-bit process.
constexpr std::size_t AbiSize(std::size_t lp64, std::size_t ilp32) {
  return sizeof(void*) == 8 ? lp64 : ilp32;
}
static_assert(sizeof(audio_buffer_t) == AbiSize(16, 8));
static_assert(sizeof(buffer_config_t) == AbiSize(56, 32));
static_assert(sizeof(effect_config_t) == AbiSize(112, 64));
static_assert(sizeof(effect_descriptor_t) == 172);
static_assert(sizeof(effect_param_t) == 12);
static_assert(sizeof(effect_interface_s) == AbiSize(32, 16));
static_assert(sizeof(audio_effect_library_t) == AbiSize(56, 32));

}  // namespace kelda

#endif  // KELDA_EFFECT_INSTANCE_H_
