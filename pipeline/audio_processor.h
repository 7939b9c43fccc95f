// The interface of a stage of the signal chain.
#ifndef KELDA_PIPELINE_AUDIO_PROCESSOR_H_
#define KELDA_PIPELINE_AUDIO_PROCESSOR_H_

#include <map>
#include <string>

#include "platform/nonblocking.h"

namespace kelda {

// Settings by key. Every processor is given the whole map and reads the keys it
// knows; the values are file paths.
using ParameterMap = std::map<std::string, std::string>;

// One stage of the chain. The engine owns the processors and switches them on
// and off; the sequencer runs the enabled ones in order, one period at a time.
//
// Audio here is 32-bit float and PLANAR: a block of `frames` frames holds one
// plane a channel, sample f of channel c at index c * frames + f.
//
// Threads: the audio thread, which calls the instance's process, calls Process and
// GetDelayedFrames; the control thread, which creates and commands the instance, calls
// everything. Their calls never overlap.
//
//   processor.SetParameters({{"upl_param_bin_file", "/data/vendor/kelda/upl.music.bin"}});
//   processor.SetEnabled(true);
//   processor.Process(in, out, processor.GetMinPeriodFrames());
class AudioProcessor {
 public:
  AudioProcessor(bool enabled, bool ready) : enabled_(enabled), ready_(ready) {}
  AudioProcessor(const AudioProcessor&) = delete;
  AudioProcessor& operator=(const AudioProcessor&) = delete;
  virtual ~AudioProcessor() = default;

  // Switches the stage on or off. Switching off a running stage that has latency
  // flushes it first, so that what its delay lines hold does not reappear when
  // it is switched on again. Returns true.
  virtual bool SetEnabled(bool enable);

  // Short static name for the report.
  virtual const char* GetName() const = 0;
  // Channels of the block that Process reads and of the one that it writes.
  virtual unsigned GetInputChannelCount() const = 0;
  virtual unsigned GetOutputChannelCount() const = 0;
  // Smallest block, in frames, that Process must be called with. The sequencer's
  // period is the largest over the chain.
  virtual unsigned GetMinPeriodFrames() const = 0;
  // Latency in frames.
  virtual unsigned GetDelayedFrames() const KELDA_NONBLOCKING = 0;
  // Takes the settings it knows from `params`. Allocates nothing, so that running out of memory
  // cannot leave some stages of a chain with old settings and others with new ones.
  virtual void SetParameters(const ParameterMap& params) = 0;
  // Processes `frames` frames from `in` to `out`, which do not overlap. Returns
  // false, with `out` as it was or silenced, if there is nothing to process with.
  virtual bool Process(float* in, float* out, unsigned frames) KELDA_NONBLOCKING = 0;
  // Drops signal history, keeps the settings.
  virtual void Flush() = 0;
  // Loads the current settings again, as if they had just been set.
  virtual void Restart() = 0;
  // Appends a line of diagnostics, with its newline, to *out.
  virtual void Dumpsys(std::string* out) const = 0;

  // The sequencer runs the stage and counts its latency only while this is true.
  bool IsEnabled() const { return enabled_; }
  // The stage has loaded all it needs to process.
  bool IsReady() const { return ready_; }

 protected:
  // The value for `key`, or null.
  static const std::string* GetValue(const ParameterMap& params, const char* key);
  // If there is a value for `key` that has to be loaded, stores it in *path and returns true.
  // It has to be loaded if it differs from *path or if the stage is not ready. *path must
  // have the capacity for it.
  bool TakePath(const ParameterMap& params, const char* key, std::string* path);

  void SetReady(bool ready) { ready_ = ready; }

 private:
  bool enabled_;
  bool ready_;
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_AUDIO_PROCESSOR_H_
