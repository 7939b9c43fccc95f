#ifndef KELDA_PIPELINE_PASS_THROUGH_PROCESSOR_H_
#define KELDA_PIPELINE_PASS_THROUGH_PROCESSOR_H_

#include "pipeline/audio_processor.h"

namespace kelda {

// The stage that runs while the upmix is off: copies its input, no latency.
class PassThroughProcessor : public AudioProcessor {
 public:
  PassThroughProcessor(unsigned input_channels, unsigned output_channels,
                       unsigned min_period_frames);

  const char* GetName() const override { return "pass"; }
  unsigned GetInputChannelCount() const override { return input_channels_; }
  unsigned GetOutputChannelCount() const override { return output_channels_; }
  unsigned GetMinPeriodFrames() const override { return min_period_frames_; }
  unsigned GetDelayedFrames() const override { return 0; }
  void SetParameters(const ParameterMap&) override {}
  // Copies frames x input channels samples; the output channel count is not used.
  bool Process(float* in, float* out, unsigned frames) override;
  void Flush() override {}
  void Restart() override {}
  void Dumpsys(std::string* out) const override;

 private:
  const unsigned input_channels_;
  const unsigned output_channels_;
  const unsigned min_period_frames_;
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_PASS_THROUGH_PROCESSOR_H_
