#ifndef KELDA_PROCESSORS_UPMIX_MUSIC_PROCESSOR_H_
#define KELDA_PROCESSORS_UPMIX_MUSIC_PROCESSOR_H_

#include <memory>
#include <string>

#include "pipeline/audio_processor.h"
#include "platform/audio_format.h"
#include "processors/lum_upmix_lib.h"
#include "processors/lum_virtualizer_lib.h"
#include "settings/config_path.h"
#include "settings/tuning_directory.h"

namespace kelda {

// The music mode: stereo, upmixed to seven channels, rendered back to stereo.
//
//   2 planes ─► upmix, 64 frames at a time ─► 7 planes ─► virtualizer, 1024 ─► 2 planes
//
// Reads the keys "ap_param_hki_config" and "music_param_bin_file".
class UpmixMusicProcessor : public AudioProcessor {
 public:
  UpmixMusicProcessor();

  const char* GetName() const override { return FactsOf(Stage::Music).name; }
  // Seven, so that the chain's buffers have room for the planes between upmix and
  // virtualizer; Process reads planes 0 and 1 only.
  unsigned GetInputChannelCount() const override { return kSurroundPlanes; }
  unsigned GetOutputChannelCount() const override { return kStereoPlanes; }
  unsigned GetMinPeriodFrames() const override { return kPeriodFrames; }
  unsigned GetDelayedFrames() const override { return kMusicDelayFrames; }
  // Loads both libraries if a path has changed, or if the last load failed.
  void SetParameters(const ParameterMap& params) override;
  // Returns whether the processor is ready; `out` is untouched if not. Processes whole chunks
  // of 64 frames, 16 at most; frames of `out` after them stay as they were.
  bool Process(float* in, float* out, unsigned frames) override;
  void Flush() override;
  void Restart() override { InitLib(); }
  void Dumpsys(std::string* out) const override;

  // Loads both libraries from the current paths.
  void InitLib();

 private:
  std::unique_ptr<LumUpmixLib> upmix_;
  std::unique_ptr<LumVirtualizerLib> virtualizer_;
  std::string hki_config_path_ = RoomForPath();
  std::string music_param_path_ = RoomForPath();
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_UPMIX_MUSIC_PROCESSOR_H_
