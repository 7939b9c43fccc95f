// Carries out the commands that have a payload, after the dispatcher has checked its size.
// Control thread, which is the one that creates, releases and commands an instance. The
// int32_t results are the commands' status replies.
#ifndef KELDA_EFFECT_COMMANDS_H_
#define KELDA_EFFECT_COMMANDS_H_

#include <hardware/audio_effect.h>

#include <cstdint>

#include "effect/instance.h"
#include "effect/parameters.h"

namespace kelda {

// Deletes the engine, then makes a new one; there are never two. The instance does not
// process until it is enabled again. Throws std::bad_alloc, with no engine left.
void UpmixCmd_Init(effect_module_s* module);

// Accepts any sample rate with two output channels of float in and out, and
// flushes the engine. Returns 0, or -EINVAL with nothing changed.
int32_t UpmixCmd_SetConfig(effect_module_s* module, const effect_config_t& config);

// `value` points at `vsize` bytes of any alignment. Unknown identifiers and values are
// ignored, with a warning. Returns 0, or -EINVAL with nothing changed.
int32_t UpmixCmd_SetParam(effect_context_s* context, UpmixParam param, uint32_t vsize,
                          const void* value);

// Writes the value, 4 bytes at most, and its size; size 0 if there is none.
void UpmixCmd_GetParam(effect_context_s* context, UpmixParam param, uint32_t* vsize, void* value);

// Sets the engine's output to the kind of device that `device` is.
void UpmixCmd_SetDevice(effect_context_s* context, audio_devices_t device);

}  // namespace kelda

#endif  // KELDA_EFFECT_COMMANDS_H_
