#include "processors/upmix_cinema_processor.h"

#include "settings/tuning_files.h"

namespace kelda {

UpmixCinemaProcessor::UpmixCinemaProcessor()
    : AudioProcessor(/*enabled=*/true, /*ready=*/false),
      cinema_(std::make_unique<LumUpmixCinemaLib>()) {}

void UpmixCinemaProcessor::SetParameters(const ParameterMap& params) {
  const bool hki_changed = TakePath(params, parameter_key::kHki, &hki_config_path_);
  const bool param_changed = TakePath(params, parameter_key::kCinema, &cinema_param_path_);
  if (hki_changed || param_changed) {
    InitLib();
  }
}

void UpmixCinemaProcessor::InitLib() {
  cinema_->Finish();
  SetReady(cinema_->LoadConfig(hki_config_path_, cinema_param_path_));
}

bool UpmixCinemaProcessor::Process(float* in, float* out, unsigned frames) {
  if (!IsReady()) {
    return false;
  }
  unsigned out_frames = 0;
  return cinema_->Process(in, frames, out, &out_frames);
}

void UpmixCinemaProcessor::Flush() {
  if (IsReady()) {
    cinema_->Flush();
  }
}

void UpmixCinemaProcessor::Dumpsys(std::string* out) const {
  out->append("hki=" + BinFileReader::GetBasename(hki_config_path_) + ":" +
              ConfigFileReader::GetParamFilename(hki_config_path_) +
              ", bin=" + BinFileReader::GetBasename(cinema_param_path_) + "\n");
}

}  // namespace kelda
