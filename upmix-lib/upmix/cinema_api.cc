// The C entries of the cinema upmix.
//
// The instance pointer that A0218 returns is really a handle, never an address. A stale or
// foreign one is refused like any other handle.
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "platform/include/upmix_lib.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/files/config_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/handles/handle_table.h"
#include "upmix-lib/upmix/cinema.h"
#include "upmix-lib/upmix/plane_upmix.h"

using namespace kelda::upmix_lib;

namespace {

constinit HandleTable<Cinema> g_instances(HandleKind::kCinema);

uint32_t HandleOf(const void* instance) {
  const auto value = reinterpret_cast<uintptr_t>(instance);
  return value <= std::numeric_limits<uint32_t>::max() ? static_cast<uint32_t>(value) : 0;
}

Status Create(const void* params, const char* directory, const char* file, uint32_t& handle) {
  CinemaParameters parameters;
  if (const Status status = LoadParameters(params, kCinemaKind, kCinemaFields, parameters);
      status != kOk) {
    return status;
  }
  std::string path;
  if (const Status status = ReadConfigFile(directory, file, path); status != kOk) {
    return status;
  }
  HrirSet hrirs;
  if (const Status status = LoadHrirSet(path, hrirs); status != kOk) {
    return status;
  }
  handle = g_instances.Insert(std::make_unique<Cinema>(parameters, hrirs));
  return handle != 0 ? kOk : kTooManyInstances;
}

}  // namespace

int32_t A0244(void) { return PreparePlaneUpmix(); }

int32_t A0333(uint32_t* param_bytes) {
  if (param_bytes == nullptr) {
    return kNullPointer;
  }
  *param_bytes = sizeof(CinemaParameters);
  return kOk;
}

void* A0218(const void* params, const char* directory, const char* file) {
  try {
    uint32_t handle = 0;
    if (Create(params, directory, file, handle) != kOk) {
      return nullptr;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): never dereferenced
    return reinterpret_cast<void*>(static_cast<uintptr_t>(handle));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int32_t A0238(const float* const* in, float* const* out, void* instance) {
  if (in == nullptr || out == nullptr || in[0] == nullptr || in[1] == nullptr ||
      out[0] == nullptr || out[1] == nullptr) {
    return kNullPointer;
  }
  Cinema* cinema = g_instances.Find(HandleOf(instance));
  if (cinema == nullptr) {
    return kBadHandle;
  }
  cinema->Process(in, out);
  return kOk;
}

int32_t A0593(void* instance) {
  Cinema* cinema = g_instances.Find(HandleOf(instance));
  if (cinema == nullptr) {
    return kBadHandle;
  }
  cinema->Flush();
  return kOk;
}

int32_t A0213(void** instance) {
  if (instance == nullptr) {
    return kNullPointer;
  }
  if (g_instances.Remove(HandleOf(*instance)) == nullptr) {
    return kBadHandle;
  }
  *instance = nullptr;
  return kOk;
}
