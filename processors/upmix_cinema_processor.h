#ifndef KELDA_PROCESSORS_UPMIX_CINEMA_PROCESSOR_H_
#define KELDA_PROCESSORS_UPMIX_CINEMA_PROCESSOR_H_

#include <memory>
#include <string>

#include "pipeline/audio_processor.h"
#include "platform/audio_format.h"
#include "processors/lum_upmix_cinema_lib.h"
#include "settings/config_path.h"
#include "settings/tuning_directory.h"

namespace kelda {

// The cinema mode: one stage from stereo to stereo. Reads the keys
// "ap_param_hki_config" and "cinema_param_bin_file".
class UpmixCinemaProcessor : public AudioProcessor {
 public:
  UpmixCinemaProcessor();

  const char* GetName() const override { return FactsOf(Stage::Cinema).name; }
  unsigned GetInputChannelCount() const override { return kStereoPlanes; }
  unsigned GetOutputChannelCount() const override { return kStereoPlanes; }
  unsigned GetMinPeriodFrames() const override { return kPeriodFrames; }
  unsigned GetDelayedFrames() const override { return kCinemaDelayFrames; }
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
