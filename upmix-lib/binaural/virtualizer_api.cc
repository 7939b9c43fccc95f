// The C entries of the virtualizer.
#include "platform/include/upmix_lib.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/virtualizer.h"
#include "upmix-lib/handles/handle_component.h"

using namespace kelda::upmix_lib;

namespace {

constinit HandleComponent<Virtualizer> g_virtualizers(HandleKind::kVirtualizer);

constexpr int32_t kFirstOfStream = 2;

// The kinds differ in the frame count they may come with and in nothing else: the
// signal's history is cleared by a flush, never by a kind, and what a stream leaves
// ringing at its end is heard to its end in the blocks that follow.
Status CheckBlock(int32_t kind, int32_t frames) {
  if (kind < 0 || kind > kFirstOfStream) {
    return kBadBlockKind;
  }
  const int32_t fewest = kind == kFirstOfStream ? 0 : kBlockFrames;
  return frames >= fewest && frames <= kBlockFrames ? kOk : kBadFrameCount;
}

}  // namespace

int32_t A0779(void) { return kOk; }

int32_t A0782(uint32_t* handle, const char* directory, const char* file) {
  return g_virtualizers.Create(handle, directory, file);
}

int32_t A0556(uint32_t handle) { return g_virtualizers.Initialize(handle); }

int32_t A0236(uint32_t handle) { return g_virtualizers.Flush(handle); }

int32_t A0560(uint32_t handle, int32_t kind, int32_t frames, float* const* out, const float* in,
              const int32_t* channel_flags) {
  return g_virtualizers.WithReady(handle, [=](Virtualizer& virtualizer) {
    if (out == nullptr || out[0] == nullptr || out[1] == nullptr || in == nullptr ||
        channel_flags == nullptr) {
      return kNullPointer;
    }
    if (const Status status = CheckBlock(kind, frames); status != kOk) {
      return status;
    }
    virtualizer.Process(frames, in, channel_flags, out[0], out[1]);
    return kOk;
  });
}

int32_t A0783(uint32_t handle, int32_t* error, int32_t* detail) {
  return g_virtualizers.LastError(handle, error, detail);
}

int32_t A0212(uint32_t handle) { return g_virtualizers.Close(handle); }

int32_t A0810(uint32_t* handle) { return g_virtualizers.Destroy(handle); }
