#ifndef KELDA_PROCESSORS_LUM_VIRTUALIZER_LIB_H_
#define KELDA_PROCESSORS_LUM_VIRTUALIZER_LIB_H_

#include <array>
#include <cstdint>
#include <string>

#include "platform/audio_format.h"
#include "platform/nonblocking.h"
#include "processors/library_handle.h"

namespace kelda {

// Owns the signal library's virtualizer: seven channels to stereo, in blocks of
// 1024 frames.
class LumVirtualizerLib {
 public:
  // Renders the first `channels` input channels, 7 at most.
  explicit LumVirtualizerLib(unsigned channels);
  LumVirtualizerLib(const LumVirtualizerLib&) = delete;
  LumVirtualizerLib& operator=(const LumVirtualizerLib&) = delete;

  // Makes an instance from the configuration file `path`, which needs a directory.
  // An earlier instance must have been finished. Returns false on failure. Control.
  bool LoadConfig(const std::string& path);
  // Ends the instance, if there is one. Returns true. Control.
  bool Finish();
  // Clears the signal history. Returns false on failure. Control.
  bool Reset();
  // The next block is the first of a stream. Returns true. Control.
  bool Eof();
  // One block: `in` is 7 planes of 1024 frames, silent beyond `frames`, `out` 2 planes of
  // 1024 frames, silenced if rendering fails. `frames`, 1024 at most, is the count of valid
  // frames; only the first block of a stream may have fewer. Sets *out_frames to 1024 and
  // returns true. Audio.
  bool Process(const float* in, unsigned frames, float* out,
               unsigned* out_frames) KELDA_NONBLOCKING;
  // Renders the same block with a given block kind and count of valid frames. Returns false,
  // with any samples in `out`, on failure. Audio.
  bool VirtualizeImpl(int kind, unsigned frames, float* out, const float* in,
                      const int32_t* channel_flags);
  // Detail code of the last error.
  int getErrorDetail() const { return handle_.ErrorDetail(); }
  bool HasHandle() const { return handle_.get() != 0; }

 private:
  // Which kind of block the next one is for the library:
  //
  //   StreamStart ──block──► AfterBreak ──block──► Running ⟲
  //    (kind 2)               (kind 1)              (kind 0)
  //                              ▲── Reset, from any state
  enum class BlockState : uint32_t { AfterBreak = 0, Running = 1, StreamStart = 2 };

  LibraryHandle handle_;
  BlockState block_state_ = BlockState::StreamStart;
  std::array<int32_t, kSurroundPlanes> channel_flags_;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_LUM_VIRTUALIZER_LIB_H_
