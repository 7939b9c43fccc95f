// The process function of an instance.

#include "effect/instance.h"
#include "effect/interface_table.h"
#include "platform/log.h"
#include "platform/may_block.h"

namespace kelda {
int32_t Upmix_Process(effect_handle_t self, audio_buffer_t* inBuffer, audio_buffer_t* outBuffer) {
  if (self == nullptr || inBuffer == nullptr || outBuffer == nullptr || inBuffer->raw == nullptr ||
      outBuffer->raw == nullptr || inBuffer->frameCount != outBuffer->frameCount) {
    return -EINVAL;
  }
  const effect_context_s& context = reinterpret_cast<effect_module_s*>(self)->context;
  switch (context.state) {
    case EffectState::Initialized:
      return -ENODATA;
    case EffectState::Enabled:
      break;
    default:
      MayBlock(BlockingReason::ReleasedInstance,
               [&] { LogError(log_tag::kEffect, "ERROR: Uninitialized"); });
      return -EINVAL;
  }
  context.engine->Process(inBuffer->f32, outBuffer->f32,
                          static_cast<unsigned>(inBuffer->frameCount));
  return 0;
}

}  // namespace kelda
