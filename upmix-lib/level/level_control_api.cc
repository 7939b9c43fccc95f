// The C entries of the level control.
#include <optional>

#include "platform/include/upmix_lib.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/handles/work_memory.h"
#include "upmix-lib/level/level_control.h"

using namespace kelda::upmix_lib;

namespace {

// A0508 makes an instance without a level control, or ends the stream of the one that is there;
// A0122 makes the level control, or lets it go on with its parameters.
struct Instance {
  std::optional<LevelControl> control;
  bool configured = false;
};
using LevelMemory = WorkMemory<Instance, 0x4C45564Cu>;

}  // namespace

int32_t A0834(void) { return kOk; }

int32_t A0557(uint32_t* work_bytes, uint32_t* param_bytes) {
  if (work_bytes == nullptr || param_bytes == nullptr) {
    return kNullPointer;
  }
  *work_bytes = LevelMemory::kBytes;
  *param_bytes = sizeof(LevelParameters);
  return kOk;
}

int32_t A0508(void* work, int32_t block_frames) {
  if (work == nullptr) {
    return kNullPointer;
  }
  if (block_frames != kBlockFrames) {
    return kBadFrameCount;
  }
  if (Instance* instance = LevelMemory::Find(work)) {
    instance->configured = false;
  } else {
    LevelMemory::Create(work);
  }
  return kOk;
}

int32_t A0122(void* work, const void* params) {
  if (work == nullptr) {
    return kNullPointer;
  }
  Instance* instance = LevelMemory::Find(work);
  if (instance == nullptr) {
    return kNotAnInstance;
  }
  LevelParameters parameters;
  if (const Status status = LoadParameters(params, kLevelKind, kLevelFields, parameters);
      status != kOk) {
    return status;
  }
  if (instance->control) {
    instance->control->ContinueWith(parameters);
  } else {
    instance->control.emplace(parameters);
  }
  instance->configured = true;
  return kOk;
}

int32_t A0217(void* work, const float* in, float* out) {
  if (work == nullptr || in == nullptr || out == nullptr) {
    return kNullPointer;
  }
  Instance* instance = LevelMemory::Find(work);
  if (instance == nullptr) {
    return kNotAnInstance;
  }
  if (!instance->configured) {
    return kNotConfigured;
  }
  instance->control->Process(in, out);
  return kOk;
}
