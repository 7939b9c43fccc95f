#include "processors/headphone_equalizer_processor.h"

#include <cstddef>

#include "platform/log.h"
#include "platform/may_block.h"
#include "settings/tuning_files.h"

namespace kelda {
HeadphoneEqualizerProcessor::HeadphoneEqualizerProcessor()
    : AudioProcessor(/*enabled=*/true, /*ready=*/false),
      equalizer_(std::make_unique<LumHpEqLib>()) {}

void HeadphoneEqualizerProcessor::SetParameters(const ParameterMap& params) {
  const std::string* const path = GetValue(params, parameter_key::kBa);
  if (path == nullptr || *path == ba_config_path_) {
    return;
  }
  ba_config_path_ = *path;
  if (ba_config_path_.empty()) {
    SetReady(false);
  } else {
    InitLib();
  }
}

void HeadphoneEqualizerProcessor::InitLib() {
  if (ba_config_path_.empty()) {
    return;
  }
  equalizer_->Finish();
  SetReady(equalizer_->LoadConfig(ba_config_path_));
  if (!IsReady()) {
    ba_config_path_.clear();
  }
}

bool HeadphoneEqualizerProcessor::Process(float* in, float* out, unsigned frames) {
  if (!IsReady()) {
    return false;
  }
  unsigned out_frames = 0;
  if (!equalizer_->Process(in, frames, out, &out_frames)) {
    MayBlock(BlockingReason::LibraryFailure,
             [&] { LogError(log_tag::kEqualizer, "Fails Process."); });
    return false;
  }
  if (out_frames < frames) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kEqualizer, "Fails Process due to a small output size:%zu < %zu",
               static_cast<std::size_t>(out_frames), static_cast<std::size_t>(frames));
    });
    return false;
  }
  return true;
}

void HeadphoneEqualizerProcessor::Flush() {
  if (IsReady()) {
    equalizer_->Reset();
  }
}

void HeadphoneEqualizerProcessor::Dumpsys(std::string* out) const {
  out->append("ba=" + BinFileReader::GetBasename(ba_config_path_) + ":" +
              ConfigFileReader::GetParamFilename(ba_config_path_) + "\n");
}

}  // namespace kelda
