#include "processors/upl_audio_processor.h"

#include "pipeline/matrix_conversion.h"
#include "settings/tuning_files.h"

namespace kelda {

UplAudioProcessor::UplAudioProcessor()
    : AudioProcessor(/*enabled=*/true, /*ready=*/false), upl_(new Upl) {}

void UplAudioProcessor::SetParameters(const ParameterMap& params) {
  if (TakePath(params, parameter_key::kLevel, &upl_param_path_)) {
    InitLib();
  }
}

void UplAudioProcessor::InitLib() {
  if (upl_param_path_.empty()) {
    return;
  }
  SetReady(upl_->LoadConfig(upl_param_path_));
}

bool UplAudioProcessor::Process(float* in, float* out, unsigned) {
  if (!IsReady()) {
    return false;
  }
  float in_block[kStereoPlanes * kPeriodFrames];
  float out_block[kStereoPlanes * kPeriodFrames] = {};
  int frames = kPeriodFrames;
  MatrixConversion::ToInterleave(in_block, in, frames, kStereoPlanes, nullptr);
  upl_->ProcFrame(out_block, in_block, &frames);
  MatrixConversion::ToPlanar(out, out_block, kPeriodFrames, kStereoPlanes, nullptr);
  return true;
}

void UplAudioProcessor::Flush() {
  if (IsReady()) {
    upl_->LoadConfig("");
  }
}

void UplAudioProcessor::Restart() {
  if (!upl_param_path_.empty()) {
    upl_->LoadConfig(upl_param_path_);
  }
}

void UplAudioProcessor::Dumpsys(std::string* out) const {
  out->append("bin=" + BinFileReader::GetBasename(upl_param_path_) + "\n");
}

}  // namespace kelda
