#ifndef KELDA_PIPELINE_FADABLE_RING_BUFFER_H_
#define KELDA_PIPELINE_FADABLE_RING_BUFFER_H_

#include "pipeline/ring_buffer.h"
#include "platform/nonblocking.h"

namespace kelda {

// A ring of interleaved 32-bit float frames that can fade out what is queued and
// fade in, after a stretch of silence, what is queued next:
//
//   queued, fading out       silence              fade-in          unchanged
//   ~~~~~~~~\___      ______________________     ___/~~~~~~~~   ~~~~~~~~~~~~~~
//        fade_frames       silence_frames         fade_frames
//
// Both ramps are raised cosines, computed per frame. Capacity and every block
// must be whole frames. For example, in a ring of stereo whose fades take 4800 frames:
//
//   ring.RequestFadingFrames(4800, 96);  // what is queued fades out
//   ring.FadableEnqueue(block, bytes);   // 96 frames of silence, then the fade-in
class FadableRingBuffer : public RingBuffer {
 public:
  FadableRingBuffer(unsigned channels, unsigned capacity_bytes, int ready_threshold_bytes);

  // Empties the buffer and cancels a fade-in.
  void Init() override;

  // Enqueues a block. During a fade-in it first fades the block in, IN PLACE.
  void FadableEnqueue(char* data, int bytes) KELDA_NONBLOCKING;
  // Applies the next part of the fade-in, silence and then the ramp, to a block in place.
  void FadeIn(char* data, int bytes) KELDA_NONBLOCKING;
  // Arms a fade-in of `silence_frames` zeros and a ramp of `fade_frames`, and
  // fades out the newest of the queued frames, `fade_frames` at most.
  void RequestFadingFrames(unsigned fade_frames, unsigned silence_frames) KELDA_NONBLOCKING;
  // Fades out the newest `frames` frames; does not check how many are queued.
  void FadeOut(unsigned frames) KELDA_NONBLOCKING;
  // The frame before `frame`, wrapping at the beginning.
  float* PrevFrame(float* frame) const KELDA_NONBLOCKING;

 private:
  int frame_bytes() const { return static_cast<int>(channels_ * sizeof(float)); }

  const unsigned channels_;
  bool fade_in_pending_ = false;
  unsigned silence_remaining_ = 0;  // frames of zeros before the ramp
  unsigned fade_length_ = 0;        // frames of the ramp
  unsigned fade_position_ = 0;      // frames of the ramp applied
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_FADABLE_RING_BUFFER_H_
