#ifndef KELDA_PROCESSORS_UPL_AUDIO_PROCESSOR_H_
#define KELDA_PROCESSORS_UPL_AUDIO_PROCESSOR_H_

#include <string>

#include "pipeline/audio_processor.h"
#include "platform/audio_format.h"
#include "processors/upl.h"
#include "settings/config_path.h"
#include "settings/tuning_directory.h"

namespace kelda {

// Level control, the last stage of the upmix modes. Reads the key
// "upl_param_bin_file".
class UplAudioProcessor : public AudioProcessor {
 public:
  UplAudioProcessor();

  const char* GetName() const override { return FactsOf(Stage::LevelControl).name; }
  unsigned GetInputChannelCount() const override { return kStereoPlanes; }
  unsigned GetOutputChannelCount() const override { return kStereoPlanes; }
  unsigned GetMinPeriodFrames() const override { return kPeriodFrames; }
  unsigned GetDelayedFrames() const override { return Upl::GetUplDelay(); }
  // Loads a path that differs from the current one, or any path while not ready. An empty
  // value only clears the path.
  void SetParameters(const ParameterMap& params) override;
  // Always handles a whole block of 1024 frames, silenced if the library fails;
  // returns whether the processor is ready, `out` is untouched if not.
  bool Process(float* in, float* out, unsigned frames) override;
  // Initialises again from the parameters that were loaded before.
  void Flush() override;
  // Loads the current file again; does not change whether the stage is ready.
  void Restart() override;
  void Dumpsys(std::string* out) const override;

  // Loads the current file again, if there is one.
  void InitLib();

 private:
  // Never released, on purpose: the signal library may still hold pointers to it after the
  // chain has ended.
  Upl* const upl_;
  std::string upl_param_path_ = RoomForPath();
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_UPL_AUDIO_PROCESSOR_H_
