// The music upmix's entry points.
#include <cstdint>

#include "platform/include/upmix_lib.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/handles/work_memory.h"
#include "upmix-lib/upmix/music_upmix.h"

namespace kelda::upmix_lib {
namespace {

using UpmixMemory = WorkMemory<PlaneUpmix, 0x5055534Du>;

template <typename Planes>
bool AnyNull(const Planes* planes, int count) {
  for (int plane = 0; plane < count; ++plane) {
    if (planes[plane] == nullptr) {
      return true;
    }
  }
  return false;
}

}  // namespace
}  // namespace kelda::upmix_lib

using namespace kelda::upmix_lib;

int32_t A0216(void) { return PreparePlaneUpmix(); }

int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes) {
  if (work_bytes == nullptr || param_bytes == nullptr) {
    return kNullPointer;
  }
  *work_bytes = UpmixMemory::kBytes;
  *param_bytes = sizeof(MusicParameters);
  return kOk;
}

// Bad parameter data leave the instance that was there, if any, as it is.
int32_t A0559(const void* params, void* work) {
  if (work == nullptr) {
    return kNullPointer;
  }
  MusicParameters parameters;
  if (const Status status = LoadParameters(params, kMusicKind, kMusicFields, parameters);
      status != kOk) {
    return status;
  }
  if (const Status status = PreparePlaneUpmix(); status != kOk) {
    return status;
  }
  UpmixMemory::Create(work, MusicTuning(parameters));
  return kOk;
}

int32_t A0239(const float* const* in, float* const* out, void* work) {
  if (in == nullptr || out == nullptr || work == nullptr || AnyNull(in, 2) ||
      AnyNull(out, kPlanes)) {
    return kNullPointer;
  }
  PlaneUpmix* upmix = UpmixMemory::Find(work);
  if (upmix == nullptr) {
    return kNotAnInstance;
  }
  upmix->Process(in, out);
  return kOk;
}
