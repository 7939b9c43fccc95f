#include "processors/upmix_music_processor.h"

#include <algorithm>

#include "settings/tuning_files.h"

namespace kelda {

UpmixMusicProcessor::UpmixMusicProcessor()
    : AudioProcessor(/*enabled=*/true, /*ready=*/false),
      upmix_(std::make_unique<LumUpmixLib>()),
      virtualizer_(std::make_unique<LumVirtualizerLib>(kSurroundPlanes)) {}

void UpmixMusicProcessor::SetParameters(const ParameterMap& params) {
  const bool hki_changed = TakePath(params, parameter_key::kHki, &hki_config_path_);
  const bool param_changed = TakePath(params, parameter_key::kMusic, &music_param_path_);
  if (hki_changed || param_changed) {
    InitLib();
  }
}

void UpmixMusicProcessor::InitLib() {
  SetReady(upmix_->LoadConfig(music_param_path_));
  if (!IsReady()) {
    return;
  }
  virtualizer_->Finish();
  SetReady(virtualizer_->LoadConfig(hki_config_path_));
}

bool UpmixMusicProcessor::Process(float* in, float* out, unsigned frames) {
  constexpr int kChunkFrames = LumUpmixLib::kChunkFrames;
  if (!IsReady()) {
    return false;
  }
  float surround[kSurroundPlanes * kPeriodFrames] = {};
  const unsigned upmixed_frames =
      std::min(frames, unsigned{kPeriodFrames}) / kChunkFrames * kChunkFrames;
  for (unsigned f = 0; f < upmixed_frames; f += kChunkFrames) {
    const float* const from[kStereoPlanes] = {in + f, in + frames + f};
    float* to[kSurroundPlanes];
    for (int c = 0; c < kSurroundPlanes; ++c) {
      to[c] = surround + c * kPeriodFrames + f;
    }
    unsigned out_count = 0;
    upmix_->Process(from, kChunkFrames, to, &out_count);
  }

  float rendered[kStereoPlanes * kPeriodFrames];
  unsigned out_frames = 0;
  virtualizer_->Process(surround, upmixed_frames, rendered, &out_frames);
  // The planes of `out` are `frames` apart, even if fewer frames were upmixed.
  std::copy_n(rendered, upmixed_frames, out);
  std::copy_n(rendered + kPeriodFrames, upmixed_frames, out + frames);
  return true;
}

void UpmixMusicProcessor::Flush() {
  if (IsReady()) {
    virtualizer_->Reset();
  }
}

void UpmixMusicProcessor::Dumpsys(std::string* out) const {
  out->append("hki=" + BinFileReader::GetBasename(hki_config_path_) + ":" +
              ConfigFileReader::GetParamFilename(hki_config_path_) +
              ", bin=" + BinFileReader::GetBasename(music_param_path_) + "\n");
}

}  // namespace kelda
