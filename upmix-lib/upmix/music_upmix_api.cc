// The music upmix's entry points.
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>

#include "platform/include/upmix_lib.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/upmix/music_upmix.h"

namespace kelda::upmix_lib {
namespace {

// Lives in the caller's work memory, at the first suitably aligned address.
struct MusicInstance {
  PlaneUpmix upmix;
  uint64_t tag;  // kTag
};
constexpr uint64_t kTag = 0x78696d7055636973;  // "sicUpmix"

// Whoever releases the work memory ends the instance: nothing may be left to do.
static_assert(std::is_trivially_destructible_v<MusicInstance>);

constexpr uint32_t kWorkBytes = sizeof(MusicInstance) + alignof(MusicInstance) - 1;

void* Aligned(void* work) {
  size_t space = kWorkBytes;
  return std::align(alignof(MusicInstance), sizeof(MusicInstance), work, space);
}

MusicInstance* Find(void* work) {
  auto* instance = static_cast<MusicInstance*>(Aligned(work));
  return instance->tag == kTag ? instance : nullptr;
}

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

int32_t A0216(void) {
  try {
    SharedFilterBankTables();
    return kOk;
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

int32_t A0511(uint32_t* work_bytes, uint32_t* param_bytes) {
  if (work_bytes == nullptr || param_bytes == nullptr) {
    return kNullPointer;
  }
  *work_bytes = kWorkBytes;
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
  if (const int32_t status = A0216(); status != kOk) {
    return status;
  }
  new (Aligned(work)) MusicInstance{PlaneUpmix(MusicTuning(parameters)), kTag};
  return kOk;
}

int32_t A0239(const float* const* in, float* const* out, void* work) {
  if (in == nullptr || out == nullptr || work == nullptr || AnyNull(in, 2) ||
      AnyNull(out, kPlanes)) {
    return kNullPointer;
  }
  MusicInstance* instance = Find(work);
  if (instance == nullptr) {
    return kNotAnInstance;
  }
  instance->upmix.Process(in, out);
  return kOk;
}
