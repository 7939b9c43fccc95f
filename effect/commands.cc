#include "effect/commands.h"

#include <bitset>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "effect/channel_mask_names.h"
#include "effect/device_types.h"
#include "platform/log.h"

namespace kelda {
namespace {

uint32_t ReadWord(const void* bytes) {
  uint32_t word;
  std::memcpy(&word, bytes, sizeof(word));
  return word;
}

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

int32_t SetMode(KeldaUpmix* engine, uint32_t vsize, const void* value) {
  if (vsize != sizeof(uint32_t)) {
    LogError(log_tag::kEffect, "ERROR: Invalid param size %u", vsize);
    return -EINVAL;
  }
  const uint32_t mode = ReadWord(value);
  if (mode > static_cast<uint32_t>(UpmixMode::Auto)) {
    LogWarning(log_tag::kEffect, "Invalid upm mode: %u is specified", mode);
    return 0;
  }
  if (const int error = engine->SetMode(UpmixMode{mode})) {
    LogError(log_tag::kEffect, "ERROR: Failed to set upm mode: %d (ECode: %d)",
             static_cast<int>(mode), error);
    return -EINVAL;
  }
  return 0;
}

int32_t SetHrtf(KeldaUpmix* engine, AudioDeviceType device, uint32_t vsize, const void* value) {
  if (vsize != sizeof(uint32_t)) {
    LogError(log_tag::kEffect, "ERROR: hrtf param size is Invalid: %u", vsize);
    return -EINVAL;
  }
  const uint32_t word = ReadWord(value);
  const HrtfType hrtf{word};
  if (hrtf != HrtfType::Standard && hrtf != HrtfType::Personalized) {
    LogWarning(log_tag::kEffect, "Invalid HRTF type: %u", word);
    return 0;
  }
  if (device == AudioDeviceType::Bluetooth) {
    engine->SetBluetoothHrtf(hrtf);
  } else {
    engine->SetWiredHrtf(hrtf);
  }
  return 0;
}

int32_t SetAppPackage(KeldaUpmix* engine, uint32_t vsize, const void* value) {
  const std::string text(static_cast<const char*>(value), vsize);
  const std::size_t separator = text.find('&');
  if (separator == std::string::npos) {
    LogWarning(log_tag::kEffect, "Invalid package format (No \"&\": %s", text.c_str());
    return 0;
  }
  const bool flag = text.compare(separator + 1, 1, "1") == 0;
  engine->SetAppPackage(text.substr(0, separator), flag);
  return 0;
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
  switch (param) {
    case UpmixParam::Mode:
      return SetMode(engine, vsize, value);
    case UpmixParam::WiredHrtf:
      return SetHrtf(engine, AudioDeviceType::Wired, vsize, value);
    case UpmixParam::BluetoothHrtf:
      return SetHrtf(engine, AudioDeviceType::Bluetooth, vsize, value);
    case UpmixParam::ReloadTunedAppList:
      engine->ReloadTunedAppList();
      return 0;
    case UpmixParam::AppPackage:
      return SetAppPackage(engine, vsize, value);
  }
  LogWarning(log_tag::kEffect, "Unknown param is specified: %d", static_cast<int>(param));
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
