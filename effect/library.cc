// What the framework loads: the library record, the descriptor, and creation and
// release of instances.
#include <cutils/properties.h>
#include <hardware/audio_effect.h>

#include <cstddef>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

#include "effect/effect_uuid.h"
#include "effect/instance.h"
#include "effect/interface_table.h"
#include "platform/log.h"

namespace kelda {

const effect_descriptor_t kDescriptor = {
    .type = kEffectUuid,
    .uuid = kEffectUuid,
    .apiVersion = EFFECT_CONTROL_API_VERSION,
    .flags = EFFECT_FLAG_TYPE_INSERT | EFFECT_FLAG_INSERT_FIRST | EFFECT_FLAG_DEVICE_IND,
    .cpuLoad = 0,
    .memoryUsage = 0,
    .name = "Kelda Upmix",
    .implementor = "Orvane Corporation",
};

const effect_interface_s kInterface = {Upmix_Process, Upmix_Command, Upmix_GetDescriptor, nullptr};

namespace {

constexpr const effect_descriptor_t* kDescriptors[] = {&kDescriptor};

// Index of the effect with this UUID, or -1.
int FindDescriptor(const audio_uuid_t& uuid) {
  for (std::size_t i = 0; i < std::size(kDescriptors); ++i) {
    if (std::memcmp(&uuid, &kDescriptors[i]->uuid, sizeof(uuid)) == 0) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

int32_t UpmixLib_Create(const audio_uuid_t* uuid, int32_t /*sessionId*/, int32_t /*ioId*/,
                        effect_handle_t* pHandle) {
  if (uuid == nullptr || pHandle == nullptr) {
    LogError(log_tag::kEffect, "ERROR: Try to create upm lib with NULL pointer");
    return -EINVAL;
  }
  if (FindDescriptor(*uuid) < 0) {
    LogError(log_tag::kEffect, "ERROR: Cannot find descriptor for upm lib");
    return -ENOENT;
  }
  if (property_get_int32("vendor.kelda.effect", 0) != 1) {
    LogError(log_tag::kEffect, "ERROR: Cannot find property to create upm lib");
    return -1;
  }
  try {
    auto module = std::make_unique<effect_module_s>();
    module->itfe = &kInterface;
    module->context.engine = new KeldaUpmix;
    module->context.state = EffectState::Initialized;
    *pHandle = reinterpret_cast<effect_handle_t>(module.release());
    LogInfo(log_tag::kEffect, "Upm lib created: %p, size: %zu", static_cast<void*>(*pHandle),
            sizeof(effect_module_s));
    return 0;
  } catch (const std::exception& exception) {
    LogError(log_tag::kEffect, "ERROR: Failed to create upm lib: %s", exception.what());
    return -ENOMEM;
  }
}

int32_t UpmixLib_Release(effect_handle_t handle) {
  LogInfo(log_tag::kEffect, "Upm lib start releasing: %p", static_cast<void*>(handle));
  if (handle == nullptr) {
    LogError(log_tag::kEffect, "ERROR: Try to release upm lib with NULL pointer");
    return -EINVAL;
  }
  const std::unique_ptr<effect_module_s> module(reinterpret_cast<effect_module_s*>(handle));
  module->context.state = EffectState::Uninitialized;
  delete std::exchange(module->context.engine, nullptr);
  return 0;
}

int32_t UpmixLib_GetDescriptor(const audio_uuid_t* uuid, effect_descriptor_t* pDescriptor) {
  if (uuid == nullptr || pDescriptor == nullptr) {
    LogError(log_tag::kEffect, "ERROR: Try to get descriptor of upm lib with NULL pointer");
    return -EINVAL;
  }
  const int index = FindDescriptor(*uuid);
  if (index < 0) {
    LogError(log_tag::kEffect, "ERROR: Cannot find descriptor for upm lib");
    return -EINVAL;
  }
  *pDescriptor = *kDescriptors[index];
  LogInfo(log_tag::kEffect, "Upm Lib Getting Descriptor - UUID matched upm type %d, UUID = %#x",
          index, uuid->timeLow);
  return 0;
}

}  // namespace

int32_t Upmix_GetDescriptor(effect_handle_t self, effect_descriptor_t* pDescriptor) {
  if (self == nullptr || pDescriptor == nullptr) {
    LogError(log_tag::kEffect, "ERROR: Try to get descriptor with NULL pointer");
    return -EINVAL;
  }
  if (reinterpret_cast<effect_module_s*>(self)->context.state == EffectState::Uninitialized) {
    LogError(log_tag::kEffect, "ERROR: Uninitialized");
    return -EINVAL;
  }
  *pDescriptor = kDescriptor;
  return 0;
}

}  // namespace kelda

extern "C" __attribute__((visibility("default")))
audio_effect_library_t AUDIO_EFFECT_LIBRARY_INFO_SYM = {
    .tag = AUDIO_EFFECT_LIBRARY_TAG,
    .version = EFFECT_LIBRARY_API_VERSION,
    .name = "Upmix Library",
    .implementor = "Orvane Corporation",
    .create_effect = kelda::UpmixLib_Create,
    .release_effect = kelda::UpmixLib_Release,
    .get_descriptor = kelda::UpmixLib_GetDescriptor,
    .create_effect_3_1 = nullptr,
};
