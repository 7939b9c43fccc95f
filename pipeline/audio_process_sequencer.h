#ifndef KELDA_PIPELINE_AUDIO_PROCESS_SEQUENCER_H_
#define KELDA_PIPELINE_AUDIO_PROCESS_SEQUENCER_H_

#include <list>
#include <memory>
#include <string>

#include "diagnostics/pcm_dump.h"
#include "pipeline/audio_processor.h"
#include "pipeline/cache_aligned.h"
#include "pipeline/fadable_ring_buffer.h"
#include "pipeline/ring_buffer.h"
#include "platform/nonblocking.h"

namespace kelda {

// Runs a chain of processors over host blocks of any size.
//
//   host block    ──► input ring ──► a period, made planar ──► enabled processors
//   (interleaved)                                              work 0 ⇄ work 1
//   host block    ◄── output ring ◄── a period, interleaved ◄──────┘
//
// A host block of exactly one period skips the rings. Every other block goes
// through them, in slices of one period if it is longer than three, else whole:
// periods are processed as they fill, and output is released once two are queued.
// Until then, and whenever fewer frames are queued than a slice has, the host gets
// silence. Each slice is delivered whole or as silence, so that nothing is lost or
// repeated. A stream of blocks of one size is silent at its beginning only.
//
// Threads: the audio thread, which calls the instance's process, calls Process; the
// control thread, which creates and commands the instance, calls everything else. Their
// calls never overlap. Process does not allocate or lock.
//
//   AudioProcessSequencer sequencer;
//   sequencer.SetProcessorChain(&chain);  // a list of the caller's processors
//   sequencer.Process(in, out, frames);
class AudioProcessSequencer {
 public:
  AudioProcessSequencer() = default;
  AudioProcessSequencer(const AudioProcessSequencer&) = delete;
  AudioProcessSequencer& operator=(const AudioProcessSequencer&) = delete;
  ~AudioProcessSequencer() = default;

  // Binds a chain, which stays the caller's and must outlive its use here, and
  // rebuilds every buffer, zeroed; what was queued is dropped. Channel counts and
  // the period are taken from the chain now: the widest input of all processors
  // sizes the work buffers, so no processor may write more planes than that.
  // Returns false and changes nothing if `chain` is null or empty.
  bool SetProcessorChain(std::list<AudioProcessor*>* chain);
  void CreateWorkBuffer();
  void DestoryWorkBuffer();

  // Latency of the enabled processors in frames, without that of the rings.
  unsigned GetDelayedFrames() const KELDA_NONBLOCKING;
  // Hands the settings to every processor, enabled or not.
  void SetParameters(const ParameterMap& params);

  // Processes `frames` interleaved frames of the chain's input channel count from
  // `in` to `out` (output channel count); `in` and `out` may be the same buffer.
  // Returns false if any of `out` is silence because too little was queued. A block of
  // no frames only starts a requested fade; its buffers may be null.
  bool Process(const float* in, float* out, unsigned frames) KELDA_NONBLOCKING;
  // Runs the enabled processors over the planar block in buffers[first], using
  // both buffers in turn; returns the index of the one that holds the result.
  int invokeProcessorChain(float** buffers, int first, unsigned frames) KELDA_NONBLOCKING;
  // The plane that receives each interleaved channel, or null for the identity.
  static const int* GetSwapTable(unsigned channels);

  // Requests a fade. The next block that goes through the rings fades out what is queued,
  // follows it with silence for the new configuration's latency, and fades in what comes then.
  void RequestFadeInOut() { fade_requested_ = true; }
  // Empties the rings, counting dropped output as discarded, and forgets a
  // requested fade. Flush and Restart first do the same to every processor.
  void FlushWorkBuffer();
  void Flush();
  void Restart();

  // Appends the frame counters and a line for each processor.
  void Dumpsys(std::string* out) const;
  // Captures the output that the host gets, silence included, to a new file in `dir`,
  // for `seconds` seconds at most. Replaces a running capture.
  void StartPcmDump(const std::string& dir, unsigned seconds);
  // Ends the capture, if one is running.
  void StopPcmDump();

 private:
  unsigned WaitingFrames() const;
  void StartRequestedFade();
  void TakeInput(unsigned first, const float* in, unsigned frames);
  void RunChain(float* out);
  void ProcessPeriodToRing(unsigned waiting, const float* in);
  bool ProcessBuffered(const float* in, float* out, unsigned frames);

  std::list<AudioProcessor*>* chain_ = nullptr;  // not owned
  unsigned input_channels_ = 0;
  unsigned output_channels_ = 0;
  unsigned work_channels_ = 0;
  unsigned period_frames_ = 0;

  std::unique_ptr<RingBuffer> input_ring_;
  unsigned input_period_bytes_ = 0;
  unsigned output_period_bytes_ = 0;
  std::unique_ptr<FadableRingBuffer> output_ring_;
  std::unique_ptr<PcmDump> pcm_dump_;
  CacheAlignedArray<float> work_[2];  // planar, work channels x period

  unsigned input_frames_ = 0;      // received
  unsigned processed_frames_ = 0;  // run through the chain
  unsigned output_frames_ = 0;     // delivered with content
  unsigned discarded_frames_ = 0;  // dropped from the output ring by flushes
  bool fade_requested_ = false;
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_AUDIO_PROCESS_SEQUENCER_H_
