// The C entries of the headphone equalizer.
#include "platform/include/upmix_lib.h"
#include "upmix-lib/equalizer/equalizer.h"
#include "upmix-lib/handles/handle_component.h"

using namespace kelda::upmix_lib;

namespace {

constinit HandleComponent<Equalizer> g_equalizers(HandleKind::kEqualizer);

}  // namespace

int32_t A0507(void) { return kOk; }

int32_t A0243(uint32_t* handle, const char* directory, const char* file) {
  return g_equalizers.Create(handle, directory, file);
}

int32_t A0214(uint32_t handle) { return g_equalizers.Initialize(handle); }

int32_t A0237(uint32_t handle) { return g_equalizers.Flush(handle); }

int32_t A0836(uint32_t handle, float* const* planes) {
  return g_equalizers.WithReady(handle, [planes](Equalizer& equalizer) {
    if (planes == nullptr || planes[0] == nullptr || planes[1] == nullptr) {
      return kNullPointer;
    }
    equalizer.Process(planes[0], planes[1]);
    return kOk;
  });
}

int32_t A0332(uint32_t handle, int32_t* error, int32_t* detail) {
  return g_equalizers.LastError(handle, error, detail);
}

int32_t A0562(uint32_t handle) { return g_equalizers.Close(handle); }

int32_t A0812(uint32_t* handle) { return g_equalizers.Destroy(handle); }
