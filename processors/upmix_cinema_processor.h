#ifndef KELDA_PROCESSORS_UPMIX_CINEMA_PROCESSOR_H_
#define KELDA_PROCESSORS_UPMIX_CINEMA_PROCESSOR_H_

#include <memory>
#include <string>

#include "pipeline/audio_processor.h"
#include "processors/lum_upmix_cinema_lib.h"
#include "processors/processing_block.h"
#include "settings/config_path.h"

namespace kelda {

// The cinema mode: one stage from stereo to stereo. Reads the keys
// "ap_param_hki_config" and "cinema_param_bin_file".
class UpmixCinemaProcessor : public AudioProcessor {
 public:
  UpmixCinemaProcessor();

  const char* GetName() const override { return "upmc"; }
  unsigned GetInputChannelCount() const override { return 2; }
  unsigned GetOutputChannelCount() const override { return 2; }
  unsigned GetMinPeriodFrames() const override { return kBlockFrames; }
  unsigned GetDelayedFrames() const override { return 96; }
  // Loads the library if a path has changed, or if the last load failed.
  void SetParameters(const ParameterMap& params) override;
  // On failure `out` is untouched (not ready) or silence.
  bool Process(float* in, float* out, unsigned frames) override;
  void Flush() override;
  void Restart() override { InitLib(); }
  void Dumpsys(std::string* out) const override;

  // Replaces the library's instance by one from the current paths; there is none
  // if that fails.
  void InitLib();

 private:
  std::unique_ptr<LumUpmixCinemaLib> cinema_;
  std::string hki_config_path_ = RoomForPath();
  std::string cinema_param_path_ = RoomForPath();
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_UPMIX_CINEMA_PROCESSOR_H_
