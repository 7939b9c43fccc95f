#ifndef KELDA_PROCESSORS_HEADPHONE_EQUALIZER_PROCESSOR_H_
#define KELDA_PROCESSORS_HEADPHONE_EQUALIZER_PROCESSOR_H_

#include <memory>
#include <string>

#include "pipeline/audio_processor.h"
#include "platform/audio_format.h"
#include "processors/lum_hp_eq_lib.h"
#include "settings/config_path.h"
#include "settings/tuning_directory.h"

namespace kelda {

// Stereo equalization for one headphone, without latency. Reads the key
// "ap_param_ba_config"; an empty value means that there is no equalizer.
class HeadphoneEqualizerProcessor : public AudioProcessor {
 public:
  HeadphoneEqualizerProcessor();

  const char* GetName() const override { return FactsOf(Stage::HeadphoneEqualizer).name; }
  unsigned GetInputChannelCount() const override { return kStereoPlanes; }
  unsigned GetOutputChannelCount() const override { return kStereoPlanes; }
  unsigned GetMinPeriodFrames() const override { return kPeriodFrames; }
  unsigned GetDelayedFrames() const override { return 0; }
  // Loads a path that differs from the one loaded. A path that failed is tried
  // again by the next call.
  void SetParameters(const ParameterMap& params) override;
  // On failure `out` is untouched (not ready) or holds the input.
  bool Process(float* in, float* out, unsigned frames) override;
  void Flush() override;
  void Restart() override { InitLib(); }
  void Dumpsys(std::string* out) const override;

  // Loads the current path again, if there is one.
  void InitLib();

 private:
  std::unique_ptr<LumHpEqLib> equalizer_;
  std::string ba_config_path_ = RoomForPath();
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_HEADPHONE_EQUALIZER_PROCESSOR_H_
