// An effect library that misbehaves on demand.
//
// KELDA_FAKE says how: wrong-tag, wrong-version, refuse-config (status reply),
// fail-process, reorder, repeat, mute, slow.
#include <hardware/audio_effect.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

struct Instance {
  const effect_interface_s* interface;
  int blocks = 0;
};

bool Behaves(const char* behaviour) {
  const char* wanted = std::getenv("KELDA_FAKE");
  return wanted != nullptr && std::strcmp(wanted, behaviour) == 0;
}

int32_t Process(effect_handle_t self, audio_buffer_t*, audio_buffer_t* out) {
  auto* const instance = reinterpret_cast<Instance*>(self);
  if (Behaves("fail-process") && ++instance->blocks == 20) {
    return -22;
  }
  if (Behaves("reorder")) {
    std::swap_ranges(out->f32, out->f32 + 2, out->f32 + 2);
  }
  if (Behaves("repeat")) {
    std::copy_n(out->f32, 2, out->f32 + 2);
  }
  if (Behaves("mute")) {
    std::fill_n(out->f32, 2 * out->frameCount, 0.0f);
  }
  if (Behaves("slow")) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return 0;
}

int32_t Command(effect_handle_t, uint32_t code, uint32_t, void* data, uint32_t*, void* reply) {
  if (code == EFFECT_CMD_SET_DEVICE) {  // the buffers hold 16 bytes; a sanitizer sees it
    std::memcpy(reply, data, 16);
  }
  if (reply != nullptr) {
    const int32_t status = code == EFFECT_CMD_SET_CONFIG && Behaves("refuse-config") ? -22 : 0;
    std::memcpy(reply, &status, sizeof(status));
  }
  return 0;
}

constexpr effect_interface_s kInterface = {Process, Command, nullptr, nullptr};

int32_t Create(const effect_uuid_t*, int32_t, int32_t, effect_handle_t* handle) {
  if (Behaves("no-memory")) {
    return -12;
  }
  *handle = reinterpret_cast<effect_handle_t>(new Instance{&kInterface});
  return 0;
}

int32_t Release(effect_handle_t self) {
  delete reinterpret_cast<Instance*>(self);
  return 0;
}

int32_t GetDescriptor(const effect_uuid_t*, effect_descriptor_t*) { return -22; }

}  // namespace

extern "C" __attribute__((visibility("default"))) audio_effect_library_t AELI;
audio_effect_library_t AELI = {
    Behaves("wrong-tag") ? 1u : AUDIO_EFFECT_LIBRARY_TAG,
    static_cast<uint32_t>(Behaves("wrong-version") ? EFFECT_MAKE_API_VERSION(2, 0)
                                                   : EFFECT_LIBRARY_API_VERSION),
    "Fake",
    "Tests",
    Create,
    Release,
    GetDescriptor,
    nullptr};
