// The virtualizer: seven loudspeakers rendered to two ears.
//
//   std::unique_ptr<Virtualizer> virtualizer;
//   if (Virtualizer::Load("/data/standard.hki", virtualizer) != kOk) { ... }  // control thread
//   virtualizer->Process(kBlockFrames, planes, flags, left, right);  // audio thread, each block
//
// "Control" and "Audio" name the calling thread, see base/audio_format.h.
#ifndef KELDA_UPMIX_LIB_BINAURAL_VIRTUALIZER_H_
#define KELDA_UPMIX_LIB_BINAURAL_VIRTUALIZER_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/nonblocking.h"
#include "upmix-lib/base/aligned_buffer.h"
#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/base/status.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/binaural/plane_renderer.h"

namespace kelda::upmix_lib {

//   planes --guard, mute--> PlaneRenderer --> left, right
//
// Blocks follow one another without a gap, whatever their kinds. Latency is 0 frames.
class Virtualizer {
 public:
  // Control. Throws std::bad_alloc.
  explicit Virtualizer(const HrirSet& hrirs);

  // Reads the HRIR file `path`; `virtualizer` is written on success only. Control. Throws
  // std::bad_alloc.
  static Status Load(const std::string& path, std::unique_ptr<Virtualizer>& virtualizer);

  // Clears the signal history. Control.
  void Flush();

  // Takes over the HRIRs and the room of `next` and fades to them during the next block,
  // with which their history begins. Control.
  void CrossfadeTo(std::unique_ptr<Virtualizer> next);

  // Renders kBlockFrames frames. `planes`: kPlanes contiguous planes of kBlockFrames
  // samples, of which the first `frames` (0 .. kBlockFrames) count. The other samples, and
  // those that are no audio, are taken for silence. `channel_flags`: per plane, 0 renders it, any
  // other value mutes it; a change fades during the block, except in the first one
  // after a flush. `left`, `right`: kBlockFrames samples, may overlap `planes`. Audio.
  void Process(int frames, const float* planes, const int32_t* channel_flags, float* left,
               float* right) KELDA_NONBLOCKING;

 private:
  void FillInput(int plane, int frames, const float* from, bool muted, float* to);

  std::unique_ptr<PlaneRenderer> renderer_;
  std::unique_ptr<PlaneRenderer> previous_;  // Kept until the next Flush or CrossfadeTo.
  bool fading_ = false;                      // previous_ is still to be heard.
  bool running_ = false;                     // A block was rendered since the last flush.
  std::array<bool, kPlanes> muted_{};        // As of the last block.
  AlignedBuffer fading_out_;                 // [ear][kBlockFrames]
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_VIRTUALIZER_H_
