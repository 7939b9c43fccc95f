// The functions through which the framework calls every instance.
//
// Threads: the control thread is whichever thread creates, releases and commands an instance;
// the audio thread is the one that calls process. Their calls on one instance never overlap.
#ifndef KELDA_EFFECT_INTERFACE_TABLE_H_
#define KELDA_EFFECT_INTERFACE_TABLE_H_

#include <hardware/audio_effect.h>

#include <cstdint>

#include "platform/nonblocking.h"

namespace kelda {

extern const effect_descriptor_t kDescriptor;
extern const effect_interface_s kInterface;

// Processes one block of interleaved stereo; the buffers may be the same. Audio.
// Returns 0, -EINVAL for missing buffers, unequal frame counts or a released
// instance, -ENODATA while the instance is not enabled.
int32_t Upmix_Process(effect_handle_t self, audio_buffer_t* inBuffer,
                      audio_buffer_t* outBuffer) KELDA_NONBLOCKING;

// Carries out one command of the framework. Control. Returns 0 or a negative errno;
// what a command decides about its payload is in the reply's status word. A command that
// runs out of memory returns -EINVAL and has changed nothing. The exception is
// EFFECT_CMD_INIT: the instance then cannot be enabled until an EFFECT_CMD_INIT succeeds.
int32_t Upmix_Command(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                      uint32_t* replySize, void* pReplyData);

// Copies the descriptor. Control. Returns 0 or -EINVAL.
int32_t Upmix_GetDescriptor(effect_handle_t self, effect_descriptor_t* pDescriptor);

}  // namespace kelda

#endif  // KELDA_EFFECT_INTERFACE_TABLE_H_
