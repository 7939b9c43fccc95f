#include "tools/framework/effect_session.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <vector>

#include "changeover/instance.h"
#include "effect/effect_uuid.h"
#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

void Check(int32_t status, const std::string& what) {
  if (status != 0) {
    throw Failure(ExitCode::kRefused,
                  "the effect refused " + what + " (status " + std::to_string(status) + ")");
  }
}

}  // namespace

EffectSession::EffectSession(const EffectLibrary& library) : library_(library) {
  constexpr int32_t kSession = 1;
  constexpr int32_t kOutput = 1;
  effect_handle_t handle = nullptr;
  const int32_t status = library.info().create_effect(&kEffectUuid, kSession, kOutput, &handle);
  Check(status, status == -ENOMEM ? "to be created for want of memory"
                                  : "to be created; property vendor.kelda.effect must be 1");
  if (handle == nullptr || *handle == nullptr) {
    throw Failure(ExitCode::kRefused, "the effect was created without a handle");
  }
  try {
    handle_ = handle;
    Init();
    Configure();
  } catch (...) {
    library.info().release_effect(handle);
    throw;
  }
}

EffectSession::~EffectSession() { library_.info().release_effect(handle_); }

void EffectSession::Command(effect_command_e code, const char* name, const void* data,
                            std::size_t bytes) {
  std::vector<char> command(std::max(bytes, kDeviceCommandBytes));
  if (bytes != 0) {
    std::memcpy(command.data(), data, bytes);
  }
  alignas(int32_t) char reply[kDeviceCommandBytes] = {};
  uint32_t reply_bytes = sizeof(int32_t);
  Check((*handle_)->command(handle_, code, static_cast<uint32_t>(bytes), command.data(),
                            &reply_bytes, reply),
        name);
  int32_t status = 0;
  std::memcpy(&status, reply, sizeof(status));
  Check(status, name);
}

void EffectSession::Init() {
  Command(EFFECT_CMD_INIT, "EFFECT_CMD_INIT", nullptr, 0);
  enabled_ = false;
}

void EffectSession::Configure() {
  const effect_config_t config = changeover::StreamConfig();
  Command(EFFECT_CMD_SET_CONFIG, "EFFECT_CMD_SET_CONFIG (48000 Hz, stereo, float)", &config,
          sizeof(config));
}

void EffectSession::Enable() {
  Command(EFFECT_CMD_ENABLE, "EFFECT_CMD_ENABLE", nullptr, 0);
  enabled_ = true;
}

void EffectSession::Disable() {
  Command(EFFECT_CMD_DISABLE, "EFFECT_CMD_DISABLE", nullptr, 0);
  enabled_ = false;
}

void EffectSession::Reset() {
  Check((*handle_)->command(handle_, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr),
        "EFFECT_CMD_RESET");
}

void EffectSession::SetDevice(audio_devices_t device) {
  Command(EFFECT_CMD_SET_DEVICE, "EFFECT_CMD_SET_DEVICE", &device, sizeof(device));
}

void EffectSession::SetParam(UpmixParam param, uint32_t value) {
  char bytes[sizeof(value)];
  std::memcpy(bytes, &value, sizeof(value));
  SetParam(param, std::string_view(bytes, sizeof(bytes)));
}

// The command's layout:  status | psize = 4 | vsize | parameter | value ...
//                          4         4          4        4        vsize bytes
void EffectSession::SetParam(UpmixParam param, std::string_view value) {
  const effect_param_t header{0, sizeof(param), static_cast<uint32_t>(value.size())};
  std::vector<char> command(sizeof(header) + sizeof(param) + value.size());
  std::memcpy(command.data(), &header, sizeof(header));
  std::memcpy(command.data() + sizeof(header), &param, sizeof(param));
  std::copy(value.begin(), value.end(), command.data() + sizeof(header) + sizeof(param));
  const std::string name =
      "EFFECT_CMD_SET_PARAM of parameter " + std::to_string(static_cast<uint32_t>(param));
  Command(EFFECT_CMD_SET_PARAM, name.c_str(), command.data(), command.size());
}

void EffectSession::Process(float* interleaved, std::size_t frames) {
  audio_buffer_t buffer{};
  buffer.frameCount = frames;
  buffer.f32 = interleaved;
  const int32_t status = (*handle_)->process(handle_, &buffer, &buffer);
  if (status != -ENODATA) {
    Check(status, "a block of " + std::to_string(frames) + " frames");
  }
}

std::string EffectSession::Dump() {
  // A file rather than a pipe: the text may be longer than a pipe holds.
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
  if (file == nullptr) {
    throw std::system_error(errno, std::generic_category(), "cannot create a temporary file");
  }
  int32_t descriptor = fileno(file.get());
  Check((*handle_)->command(handle_, EFFECT_CMD_DUMP, sizeof(descriptor), &descriptor, nullptr,
                            nullptr),
        "EFFECT_CMD_DUMP");
  std::fseek(file.get(), 0, SEEK_SET);
  std::string text;
  char piece[4096];
  while (const std::size_t bytes = std::fread(piece, 1, sizeof(piece), file.get())) {
    text.append(piece, bytes);
  }
  return text;
}

}  // namespace kelda::tools
