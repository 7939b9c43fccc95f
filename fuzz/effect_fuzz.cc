// The effect as its host sees it: several instances, any order of calls, any bytes in
// commands, any audio, and tuning files that change meanwhile. Buffers have exactly the size
// that the call declares.
#include <cutils/properties.h>
#include <fcntl.h>
#include <hardware/audio_effect.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "fuzz/begin_effect.h"
#include "fuzz/byte_reader.h"
#include "fuzz/samples.h"
#include "fuzz/tuning.h"
#include "tests/laboratory/effect_client.h"

namespace {

using namespace kelda::fuzz;
using namespace kelda::test;
using kelda::TemporaryFolder;

constexpr uint32_t kDeviceBytes = 16;  // callers provide as many, although they declare 4
constexpr uint32_t kWordBytes = sizeof(uint32_t);

struct Instance {
  std::optional<Effect> effect;
  bool sound = true;  // all its input so far was noise or silence of at most full scale
};

void Send(Effect* effect, uint32_t code, std::string payload, uint32_t reply_bytes) {
  const auto size = static_cast<uint32_t>(payload.size());
  const uint32_t provided = code == EFFECT_CMD_SET_DEVICE ? kDeviceBytes : 0;
  payload.resize(std::max(provided, size));
  effect->Command({.code = code,
                   .data = payload,
                   .cmd_size = size,
                   .null_data = size == 0,
                   .reply_size = reply_bytes,
                   .reply_room = std::max(provided, reply_bytes),
                   .null_reply_size = reply_bytes == 0});
}

// A command as hosts send it.
void SendKnown(Effect* effect, ByteReader* input) {
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
      return Send(effect, EFFECT_CMD_SET_DEVICE, Bytes(input->OneOf(kDevices)), kWordBytes);
    case 5: {
      constexpr uint32_t kMasks[] = {0x3, 0x1, 0x63f, 0x2d63f, 0x0, 0x80000003};
      effect_config_t config = StereoConfig();
      config.inputCfg.channels = config.outputCfg.channels = input->OneOf(kMasks);
      return Send(effect, EFFECT_CMD_SET_CONFIG, Bytes(config), kWordBytes);
    }
    case 6:
      return Send(effect, EFFECT_CMD_SET_PARAM, Param(kAppPackage, input->OneOf(kApps)),
                  kWordBytes);
    default: {  // modes, HRTFs, reload
      const auto id = input->Below(4);
      const auto value = input->Below(5);
      return Send(effect, EFFECT_CMD_SET_PARAM, Param(id, Bytes(value)), kWordBytes);
    }
  }
}

// A command of any size and contents. Only the descriptor of a dump is valid, as the host promises.
void SendAny(Effect* effect, ByteReader* input) {
  static const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  constexpr uint32_t kSizes[] = {0, 4, 12, 16, 20, 24, 32, sizeof(effect_config_t)};
  uint32_t code = input->Below(EFFECT_CMD_DUMP + 2);
  if (code > EFFECT_CMD_DUMP) {
    code = input->Take<uint32_t>();
  }
  const uint32_t reply_bytes = input->OneOf(kSizes);
  const std::size_t size = input->Below(4) == 0 ? input->Take<uint8_t>() : input->OneOf(kSizes);
  const auto bytes = input->TakeBytes(size);
  std::string payload(bytes.begin(), bytes.end());
  if (code == EFFECT_CMD_DUMP && !payload.empty()) {
    payload = Bytes(static_cast<uint32_t>(nowhere));
  }
  Send(effect, code, payload, reply_bytes);
}

void Process(Instance* instance, ByteReader* input) {
  constexpr std::size_t kFrames[] = {1024, 960, 480, 1920, 0, 1, 3071, 4096, 64};
  const std::size_t frames =
      input->Below(4) == 0 ? input->Take<uint16_t>() % 8192 : input->OneOf(kFrames);
  const Samples in(2 * frames), out(2 * frames);
  const bool in_place = input->Below(2) == 1;
  instance->sound &= Fill(in, input);
  const Samples& heard = in_place ? in : out;
  instance->effect->Process(in.data(), heard.data(), frames);
  if (instance->sound) {
    TrapUnlessFinite(heard);
  }
}

void SetProperty(ByteReader* input) {
  constexpr const char* kNames[] = {"vendor.kelda.effect", "vendor.kelda.pcmdump", "ro.debuggable"};
  constexpr const char* kValues[] = {"1", "0", "-1", "", "2147483647", "0x", " 010"};
  property_set(input->OneOf(kNames), input->OneOf(kValues));
}

void Create(Instance* instance, ByteReader* input) {
  effect_descriptor_t descriptor;
  Library().get_descriptor(&kUuid, &descriptor);
  descriptor.uuid.timeLow += input->Below(16) == 15;
  effect_handle_t handle = nullptr;
  if (Library().create_effect(&descriptor.uuid, 1, 1, &handle) != 0) {
    return;
  }
  instance->effect.emplace(handle);
  instance->sound = true;
  (*handle)->get_descriptor(handle, &descriptor);
}

void Step(Instance* instance, const TemporaryFolder& directory, ByteReader* input) {
  const std::size_t step = input->Below(16);
  if (step == 0) {
    RewriteTuning(directory, input);
  } else if (step == 1) {
    SetProperty(input);
  } else if (!instance->effect) {
    Create(instance, input);
  } else if (step == 2) {
    instance->effect.reset();
  } else if (step < 5) {
    SendAny(&*instance->effect, input);
  } else if (step < 10) {
    SendKnown(&*instance->effect, input);
  } else {
    Process(instance, input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const TemporaryFolder directory;
  constexpr int kMostSteps = 200;
  BeginEffect(directory);
  ByteReader input(data, size);
  std::array<Instance, 3> instances;
  for (int i = 0; i < kMostSteps && !input.empty(); ++i) {
    Step(&instances[input.Below(instances.size())], directory, &input);
  }
  return 0;
}
