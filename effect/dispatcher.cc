// The command function of an instance: checks the sizes of each command, carries it out
// and replies.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string>

#include "diagnostics/pcm_dump.h"
#include "effect/commands.h"
#include "effect/instance.h"
#include "effect/interface_table.h"
#include "effect/parameters.h"
#include "platform/log.h"

namespace kelda {
namespace {

// A command's payload and the room for its reply. Either may be missing, have any
// size and any alignment.
struct Command {
  uint32_t code;
  uint32_t size;
  void* data;
  uint32_t* reply_size;
  void* reply;

  bool HasReply() const { return reply != nullptr && reply_size != nullptr; }
  bool HasReplyOf(std::size_t bytes) const { return HasReply() && *reply_size == bytes; }
  bool HasStatusReply() const { return HasReplyOf(sizeof(int32_t)); }
  void ReplyStatus(int32_t status) const { std::memcpy(reply, &status, sizeof(status)); }
  uint32_t Word(std::size_t offset) const { return ParamWord(data, offset); }
};

int32_t Refuse(const char* message) {
  LogError(log_tag::kEffect, "%s", message);
  return -EINVAL;
}

int32_t Init(effect_module_s* module, const Command& command) {
  if (!command.HasStatusReply()) {
    return Refuse("ERROR: init with Invalid param");
  }
  UpmixCmd_Init(module);
  command.ReplyStatus(0);
  return 0;
}

int32_t SetConfig(effect_module_s* module, const Command& command) {
  if (!command.HasStatusReply()) {
    return Refuse("ERROR: set with invalid param");
  }
  effect_config_t config;
  if (command.size != sizeof(config) || command.data == nullptr) {
    return -EINVAL;
  }
  std::memcpy(&config, command.data, sizeof(config));
  ++module->context.setConfigCount;
  command.ReplyStatus(UpmixCmd_SetConfig(module, config));
  return 0;
}

int32_t Reset(effect_module_s* module) {
  if (module->context.engine != nullptr) {
    module->context.engine->Reset();
  }
  return 0;
}

int32_t Enable(effect_context_s* context, const Command& command, int32_t dump_request) {
  // Before any check: a refused command starts a capture, too.
  if (dump_request >= 1 && context->engine != nullptr) {
    context->engine->StartPcmDump(static_cast<unsigned>(dump_request));
  }
  if (!command.HasStatusReply()) {
    return Refuse("ERROR: enable with invalid param");
  }
  if (context->state != EffectState::Initialized || context->engine == nullptr) {
    LogError(log_tag::kEffect, "ERROR: ebable at uninitialized state");
    return -ENOSYS;
  }
  context->state = EffectState::Enabled;
  ++context->enableCount;
  command.ReplyStatus(0);
  return 0;
}

int32_t Disable(effect_context_s* context, const Command& command, int32_t dump_request) {
  // Before any check: a refused command stops a capture, too.
  if (dump_request >= 1 && context->engine != nullptr) {
    context->engine->StopPcmDump();
  }
  if (!command.HasStatusReply()) {
    return Refuse("ERROR: disable with invalid param");
  }
  if (context->state != EffectState::Enabled) {
    LogError(log_tag::kEffect, "ERROR: disable errors due to invalid state (=%d)",
             static_cast<int>(context->state));
    return -ENOSYS;
  }
  ++context->disableCount;
  context->state = EffectState::Initialized;
  if (context->engine != nullptr) {
    context->engine->Reset();
  }
  command.ReplyStatus(0);
  return 0;
}

int32_t SetParam(effect_context_s* context, const Command& command) {
  if (!command.HasStatusReply() || !HoldsParam(command.data, command.size)) {
    return Refuse("ERROR: set with invalid param");
  }
  command.ReplyStatus(
      UpmixCmd_SetParam(context, UpmixParam{command.Word(kParamIdOffset)},
                        command.Word(offsetof(effect_param_t, vsize)),
                        static_cast<const char*>(command.data) + kParamValueOffset));
  return 0;
}

int32_t GetParam(effect_context_s* context, const Command& command) {
  if (!command.HasReply() || *command.reply_size < kParamValueOffset + sizeof(uint32_t) ||
      command.size < kParamValueOffset || command.data == nullptr) {
    return Refuse("ERROR: EFFECT_CMD_GET_PARAM: Invalid param");
  }
  const UpmixParam param{command.Word(kParamIdOffset)};
  char* const reply = static_cast<char*>(command.reply);
  std::memmove(reply, command.data, kParamValueOffset);
  uint32_t vsize = 0;
  UpmixCmd_GetParam(context, param, &vsize, reply + kParamValueOffset);
  std::memcpy(reply + offsetof(effect_param_t, vsize), &vsize, sizeof(vsize));
  command.ReplyStatus(0);
  *command.reply_size = vsize + static_cast<uint32_t>(kParamValueOffset);
  return 0;
}

int32_t SetDevice(effect_context_s* context, const Command& command) {
  if (!command.HasStatusReply() || command.size != sizeof(uint32_t) || command.data == nullptr) {
    return Refuse("ERROR: EFFECT_CMD_SET_DEVICE: Invalid param");
  }
  const auto device = static_cast<audio_devices_t>(command.Word(0));
  std::memmove(command.reply, command.data, kDeviceCommandBytes);
  UpmixCmd_SetDevice(context, device);
  command.ReplyStatus(0);
  return 0;
}

int32_t GetConfig(const effect_module_s* module, const Command& command) {
  if (!command.HasReplyOf(sizeof(effect_config_t))) {
    return Refuse("ERROR: EFFECT_CMD_GET_CONFIG: Invalid param");
  }
  std::memcpy(command.reply, &module->config, sizeof(effect_config_t));
  return 0;
}

int32_t Dump(const effect_context_s& context, const Command& command) {
  if (command.data == nullptr || command.size < sizeof(uint32_t)) {
    return 0;  // no descriptor
  }
  std::string text = "Upmix:\n    enableCount: " + std::to_string(context.enableCount) +
                     "\n    disableCount: " + std::to_string(context.disableCount) +
                     "\n    setconfigCoun: " + std::to_string(context.setConfigCount) + "\n";
  if (context.engine != nullptr) {
    context.engine->Dumpsys(&text);
  }
  // A single write; what the reader does not take is lost.
  [[maybe_unused]] const ssize_t written =
      write(static_cast<int>(command.Word(0)), text.data(), text.size());
  return 0;
}

// The name of a command that the framework defines and this effect does not support, or null.
const char* UnsupportedName(uint32_t code) {
#define KELDA_UNSUPPORTED(name) \
  case name:                    \
    return #name
  switch (code) {
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_PARAM_DEFERRED);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_PARAM_COMMIT);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_VOLUME);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_AUDIO_MODE);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_CONFIG_REVERSE);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_INPUT_DEVICE);
    KELDA_UNSUPPORTED(EFFECT_CMD_GET_CONFIG_REVERSE);
    KELDA_UNSUPPORTED(EFFECT_CMD_GET_FEATURE_SUPPORTED_CONFIGS);
    KELDA_UNSUPPORTED(EFFECT_CMD_GET_FEATURE_CONFIG);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_FEATURE_CONFIG);
    KELDA_UNSUPPORTED(EFFECT_CMD_SET_AUDIO_SOURCE);
    KELDA_UNSUPPORTED(EFFECT_CMD_OFFLOAD);
    KELDA_UNSUPPORTED(EFFECT_CMD_FIRST_PROPRIETARY);
    default:
      return nullptr;
  }
#undef KELDA_UNSUPPORTED
}

int32_t RefuseCode(uint32_t code) {
  if (const char* const name = UnsupportedName(code)) {
    LogWarning(log_tag::kEffect, "Unsupported command: %s", name);
    return 0;
  }
  LogError(log_tag::kEffect, "ERROR: Unknown command is specified: %u", code);
  return -EINVAL;
}

int32_t Dispatch(effect_module_s* module, const Command& command, int32_t dump_request) {
  effect_context_s* const context = &module->context;
  switch (command.code) {
    case EFFECT_CMD_INIT:
      return Init(module, command);
    case EFFECT_CMD_SET_CONFIG:
      return SetConfig(module, command);
    case EFFECT_CMD_RESET:
      return Reset(module);
    case EFFECT_CMD_ENABLE:
      return Enable(context, command, dump_request);
    case EFFECT_CMD_DISABLE:
      return Disable(context, command, dump_request);
    case EFFECT_CMD_SET_PARAM:
      return SetParam(context, command);
    case EFFECT_CMD_GET_PARAM:
      return GetParam(context, command);
    case EFFECT_CMD_SET_DEVICE:
      return SetDevice(context, command);
    case EFFECT_CMD_GET_CONFIG:
      return GetConfig(module, command);
    case EFFECT_CMD_DUMP:
      return Dump(*context, command);
    default:
      return RefuseCode(command.code);
  }
}

}  // namespace

int32_t Upmix_Command(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                      uint32_t* replySize, void* pReplyData) {
  if (self == nullptr) {
    return Refuse("ERROR: command called with NULL pointer");
  }
  auto* const module = reinterpret_cast<effect_module_s*>(self);
  if (module->context.state == EffectState::Uninitialized) {
    return Refuse("ERROR: command at uninitialized state");
  }
  const int32_t dump_request = PcmDump::RequestedSeconds();
  try {
    return Dispatch(module, {cmdCode, cmdSize, pCmdData, replySize, pReplyData}, dump_request);
  } catch (const std::exception& exception) {
    LogError(log_tag::kEffect, "ERROR: command %u failed: %s", cmdCode, exception.what());
    return -EINVAL;
  }
}

}  // namespace kelda
