// The effect as its host sees it: several instances, any order of calls, any bytes in
// commands, any audio, and tuning files that change underneath. Buffers have exactly the size
// that the call declares.
#include <cutils/properties.h>
#include <fcntl.h>
#include <hardware/audio_effect.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/byte_reader.h"
#include "fuzz/quiet_log.h"
#include "fuzz/samples.h"
#include "fuzz/tuning.h"

extern "C" audio_effect_library_t AUDIO_EFFECT_LIBRARY_INFO_SYM;

namespace {

using namespace kelda::fuzz;
using kelda::upmix_lib::TempDirectory;

constexpr effect_uuid_t kUuid = {
    0x3f8a61c2, 0x9d47, 0x4b1e, 0x8c05, {0xd2, 0xe9, 0x7a, 0x4b, 0x6f, 0x10}};
constexpr auto& kLibrary = AUDIO_EFFECT_LIBRARY_INFO_SYM;
constexpr uint32_t kDeviceBytes = 16;  // callers provide as many, whatever they declare
constexpr uint32_t kWordBytes = sizeof(uint32_t);

struct Instance {
  effect_handle_t handle = nullptr;
  bool sound = true;  // was never given anything but sound
};

// Bytes on the heap with nothing behind them.
std::unique_ptr<char[]> Exactly(std::size_t bytes) {
  return std::unique_ptr<char[]>(new char[bytes]());
}

void Send(effect_handle_t effect, uint32_t code, const std::string& payload, uint32_t reply_bytes) {
  auto size = static_cast<uint32_t>(payload.size());
  const std::size_t provided = code == EFFECT_CMD_SET_DEVICE ? kDeviceBytes : 0;
  const auto data = Exactly(std::max(provided, payload.size()));
  const auto reply = Exactly(std::max<std::size_t>(provided, reply_bytes));
  if (size > 0) std::memcpy(data.get(), payload.data(), size);
  (*effect)->command(effect, code, size, size > 0 ? data.get() : nullptr,
                     reply_bytes > 0 ? &reply_bytes : nullptr, reply.get());
}

template <typename... Words>
std::string Payload(const Words&... words) {
  std::string payload;
  (payload.append(reinterpret_cast<const char*>(&words), sizeof(words)), ...);
  return payload;
}

// A command as hosts send it.
void SendKnown(effect_handle_t effect, ByteReader* input) {
  constexpr uint32_t kDevices[] = {AUDIO_DEVICE_OUT_WIRED_HEADPHONE,
                                   AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, 0x2};
  constexpr const char* kApps[] = {"a.b&0", "c.d&1", "e.f&0", "g&1", "none"};
  switch (input->Below(9)) {
    case 0:
      return Send(effect, EFFECT_CMD_INIT, {}, kWordBytes);
    case 1:
      return Send(effect, EFFECT_CMD_ENABLE, {}, kWordBytes);
    case 2:
      return Send(effect, EFFECT_CMD_DISABLE, {}, kWordBytes);
    case 3:
      return Send(effect, EFFECT_CMD_RESET, {}, 0);
    case 4:
      return Send(effect, EFFECT_CMD_SET_DEVICE, Payload(input->OneOf(kDevices)), kWordBytes);
    case 5: {
      constexpr uint32_t kMasks[] = {0x3, 0x1, 0x63f, 0x2d63f, 0x0, 0x80000003};
      effect_config_t config{};
      config.inputCfg.samplingRate = config.outputCfg.samplingRate = 48000;
      config.inputCfg.channels = config.outputCfg.channels = input->OneOf(kMasks);
      config.inputCfg.format = config.outputCfg.format = AUDIO_FORMAT_PCM_FLOAT;
      return Send(effect, EFFECT_CMD_SET_CONFIG, Payload(config), kWordBytes);
    }
    case 6: {
      const std::string app = input->OneOf(kApps);
      const auto size = static_cast<uint32_t>(app.size());
      return Send(effect, EFFECT_CMD_SET_PARAM, Payload(0u, kWordBytes, size, 10u) + app,
                  kWordBytes);
    }
    default: {  // modes, HRTFs, reload
      const auto id = input->Below(4);
      const auto value = input->Below(5);
      return Send(effect, EFFECT_CMD_SET_PARAM, Payload(0u, kWordBytes, kWordBytes, id, value),
                  kWordBytes);
    }
  }
}

// A command of any size and contents; what the descriptor of a dump is, is the host's promise.
void SendAny(effect_handle_t effect, ByteReader* input) {
  static const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  constexpr uint32_t kSizes[] = {0, 4, 12, 16, 20, 24, 32, sizeof(effect_config_t)};
  uint32_t code = input->Below(EFFECT_CMD_DUMP + 2);
  if (code > EFFECT_CMD_DUMP) code = input->Take<uint32_t>();
  const uint32_t reply_bytes = input->OneOf(kSizes);
  const std::size_t size = input->Below(4) == 0 ? input->Take<uint8_t>() : input->OneOf(kSizes);
  const auto bytes = input->TakeBytes(size);
  std::string payload(bytes.begin(), bytes.end());
  if (code == EFFECT_CMD_DUMP && !payload.empty()) payload = Payload(nowhere);
  Send(effect, code, payload, reply_bytes);
}

void Process(Instance* instance, ByteReader* input) {
  constexpr std::size_t kFrames[] = {1024, 960, 480, 1920, 0, 1, 3071, 4096, 64};
  const std::size_t frames =
      input->Below(4) == 0 ? input->Take<uint16_t>() % 8192 : input->OneOf(kFrames);
  const Samples in(2 * frames), out(2 * frames);
  const bool in_place = input->Below(2) == 1;
  instance->sound &= Fill(in, input);
  audio_buffer_t from{frames, {in.data()}}, to{frames, {in_place ? in.data() : out.data()}};
  (*instance->handle)->process(instance->handle, &from, &to);
  if (instance->sound) TrapUnlessFinite(in_place ? in : out);
}

void SetProperty(ByteReader* input) {
  constexpr const char* kNames[] = {"vendor.kelda.effect", "vendor.kelda.pcmdump", "ro.debuggable"};
  constexpr const char* kValues[] = {"1", "0", "-1", "", "2147483647", "0x", " 010"};
  property_set(input->OneOf(kNames), input->OneOf(kValues));
}

void Create(Instance* instance, ByteReader* input) {
  effect_descriptor_t descriptor;
  kLibrary.get_descriptor(&kUuid, &descriptor);
  descriptor.uuid.timeLow += input->Below(16) == 15;
  if (kLibrary.create_effect(&descriptor.uuid, 1, 1, &instance->handle) != 0) return;
  (*instance->handle)->get_descriptor(instance->handle, &descriptor);
}

void Release(Instance* instance) {
  kLibrary.release_effect(instance->handle);
  *instance = {};
}

void Step(Instance* instance, const TempDirectory& directory, ByteReader* input) {
  const std::size_t step = input->Below(16);
  if (step == 0) {
    RewriteTuning(directory, input);
  } else if (step == 1) {
    SetProperty(input);
  } else if (instance->handle == nullptr) {
    Create(instance, input);
  } else if (step == 2) {
    Release(instance);
  } else if (step < 5) {
    SendAny(instance->handle, input);
  } else if (step < 10) {
    SendKnown(instance->handle, input);
  } else {
    Process(instance, input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const TempDirectory directory;
  constexpr int kMostSteps = 200;
  QuietLog();
  setenv("KELDA_DATA_DIR", directory.path().c_str(), 1);
  property_set("vendor.kelda.effect", "1");
  property_set("vendor.kelda.pcmdump", "0");
  WriteTuning(directory);
  ByteReader input(data, size);
  std::array<Instance, 3> instances;
  for (int i = 0; i < kMostSteps && !input.empty(); ++i) {
    Step(&instances[input.Below(instances.size())], directory, &input);
  }
  for (Instance& instance : instances) {
    if (instance.handle != nullptr) Release(&instance);
  }
  return 0;
}
