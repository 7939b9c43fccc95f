#include "effect/commands.h"

#include <bitset>
#include <cstring>
#include <optional>
#include <utility>

#include "effect/channel_mask_names.h"
#include "effect/device_types.h"
#include "platform/log.h"

namespace kelda {
namespace {

bool IsSupportedChannelMask(uint32_t mask) {
  constexpr uint32_t kRefusedBits = 0xFF000000;  // index masks, haptics, the top byte
  constexpr uint32_t kPositionBits = 0x33FFFFFF;
  if (mask != 0 && (mask & kRefusedBits) == 0 &&
      std::bitset<32>(mask & kPositionBits).count() == 2) {
    return true;
  }
  if ((mask & kRefusedBits) != 0) {
    LogError(log_tag::kEffect, "ERROR: Unsupported channels in %u", mask & kRefusedBits);
  }
  LogError(log_tag::kEffect, "ERROR: Unsupported input channels: %s",
           audio_channel_out_mask_to_string(mask));
  return false;
}

}  // namespace

void UpmixCmd_Init(effect_module_s* module) {
  module->context.state = EffectState::Initialized;
  delete std::exchange(module->context.engine, nullptr);
  module->context.engine = new KeldaUpmix;
}

int32_t UpmixCmd_SetConfig(effect_module_s* module, const effect_config_t& config) {
  const buffer_config_t& in = config.inputCfg;
  const buffer_config_t& out = config.outputCfg;
  if (in.samplingRate != out.samplingRate || in.channels != out.channels ||
      in.format != AUDIO_FORMAT_PCM_FLOAT || out.format != AUDIO_FORMAT_PCM_FLOAT) {
    LogError(log_tag::kEffect, "ERROR: Invalid config for upm");
    return -EINVAL;
  }
  if (!IsSupportedChannelMask(in.channels)) {
    return -EINVAL;
  }
  module->config = config;
  if (module->context.engine != nullptr) {
    module->context.engine->Reset();
  }
  return 0;
}

int32_t UpmixCmd_SetParam(effect_context_s* context, UpmixParam param, uint32_t vsize,
                          const void* value) {
  KeldaUpmix* const engine = context->engine;
  if (engine == nullptr) {
    return -EINVAL;
  }
  std::optional<ParamValue> read;
  const int32_t status = ReadParam(param, vsize, value, &read);
  if (status != 0 || !read) {
    return status;
  }
  switch (read->param) {
    case UpmixParam::Mode:
      if (const int error = engine->SetMode(UpmixMode{read->word})) {
        LogError(log_tag::kEffect, "ERROR: Failed to set upm mode: %d (ECode: %d)",
                 static_cast<int>(read->word), error);
        return -EINVAL;
      }
      break;
    case UpmixParam::WiredHrtf:
      engine->SetWiredHrtf(HrtfType{read->word});
      break;
    case UpmixParam::BluetoothHrtf:
      engine->SetBluetoothHrtf(HrtfType{read->word});
      break;
    case UpmixParam::ReloadTunedAppList:
      engine->ReloadTunedAppList();
      break;
    case UpmixParam::AppPackage:
      engine->SetAppPackage(read->package, read->word != 0);
      break;
  }
  return 0;
}

void UpmixCmd_GetParam(effect_context_s* context, UpmixParam param, uint32_t* vsize, void* value) {
  if (param == UpmixParam::Mode && context->engine != nullptr) {
    const auto mode = static_cast<uint32_t>(context->engine->GetMode());
    *vsize = sizeof(mode);
    std::memcpy(value, &mode, sizeof(mode));
    return;
  }
  *vsize = 0;
  LogWarning(log_tag::kEffect, "Unknown param is specified: %d", static_cast<int>(param));
}

void UpmixCmd_SetDevice(effect_context_s* context, audio_devices_t device) {
  if (context->engine != nullptr) {
    context->engine->SetDevice(DeviceTypeOf(device));
  }
}

}  // namespace kelda
