// The C entries of the level control.
#include <memory>
#include <new>
#include <type_traits>

#include "platform/include/upmix_lib.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_control.h"

using namespace kelda::upmix_lib;

namespace {

// What the work memory holds, at its first suitably aligned address. A0508 lays it down,
// A0122 builds the level control in it.
struct Instance {
  static constexpr uint32_t kMark = 0x4C45564Cu;

  uint32_t mark = kMark;  // tells an instance from memory that never held one
  bool configured = false;
  alignas(LevelControl) std::byte level_control[sizeof(LevelControl)];
};
static_assert(std::is_trivially_destructible_v<LevelControl>, "nobody destroys an instance");
static_assert(std::is_trivially_destructible_v<Instance>, "nobody destroys an instance");

constexpr uint32_t kWorkBytes = sizeof(Instance) + alignof(Instance) - 1;

void* AlignedIn(void* work) {
  size_t space = kWorkBytes;
  return std::align(alignof(Instance), sizeof(Instance), work, space);
}

// The instance in `work`, which is not null; null if A0508 did not initialise it.
Instance* Find(void* work) {
  auto* instance = std::launder(static_cast<Instance*>(AlignedIn(work)));
  return instance->mark == Instance::kMark ? instance : nullptr;
}

}  // namespace

int32_t A0834(void) { return kOk; }

int32_t A0557(uint32_t* work_bytes, uint32_t* param_bytes) {
  if (work_bytes == nullptr || param_bytes == nullptr) {
    return kNullPointer;
  }
  *work_bytes = kWorkBytes;
  *param_bytes = sizeof(LevelParameters);
  return kOk;
}

int32_t A0508(void* work, int32_t block_frames) {
  if (work == nullptr) {
    return kNullPointer;
  }
  if (block_frames != static_cast<int32_t>(kBlockFrames)) {
    return kBadFrameCount;
  }
  ::new (AlignedIn(work)) Instance;
  return kOk;
}

int32_t A0122(void* work, const void* params) {
  if (work == nullptr) {
    return kNullPointer;
  }
  Instance* instance = Find(work);
  if (instance == nullptr) {
    return kNotAnInstance;
  }
  LevelParameters parameters;
  if (const Status status = LoadParameters(params, kLevelKind, kLevelFields, parameters);
      status != kOk) {
    return status;
  }
  ::new (instance->level_control) LevelControl(parameters);
  instance->configured = true;
  return kOk;
}

int32_t A0217(void* work, const float* in, float* out) {
  if (work == nullptr || in == nullptr || out == nullptr) {
    return kNullPointer;
  }
  Instance* instance = Find(work);
  if (instance == nullptr) {
    return kNotAnInstance;
  }
  if (!instance->configured) {
    return kNotConfigured;
  }
  std::launder(reinterpret_cast<LevelControl*>(instance->level_control))->Process(in, out);
  return kOk;
}
