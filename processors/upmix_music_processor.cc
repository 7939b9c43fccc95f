#include "processors/upmix_music_processor.h"

#include <algorithm>
#include <cstddef>

#include "pipeline/matrix_conversion.h"
#include "platform/may_block.h"
#include "settings/tuning_files.h"

namespace kelda {

UpmixMusicProcessor::UpmixMusicProcessor()
    : AudioProcessor(/*enabled=*/true, /*ready=*/false),
      upmix_(std::make_unique<LumUpmixLib>()),
      virtualizer_(std::make_unique<LumVirtualizerLib>(kSurroundPlanes)),
      stereo_scratch_(std::size_t{kStereoPlanes} * kPeriodFrames) {}

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
  const std::size_t stereo_samples = std::size_t{kStereoPlanes} * frames;
  if (stereo_scratch_.size() < stereo_samples) {
    MayBlock(BlockingReason::LongBlock, [&] { stereo_scratch_.resize(stereo_samples); });
  }
  MatrixConversion::ToInterleave(stereo_scratch_.data(), in, static_cast<int>(frames),
                                 kStereoPlanes, nullptr);

  float surround[kSurroundPlanes * kPeriodFrames];
  const unsigned chunks = std::min(frames, unsigned{kPeriodFrames}) / kChunkFrames;
  for (unsigned k = 0; k < chunks; ++k) {
    unsigned out_count = 0;
    upmix_->Process(stereo_scratch_.data() + std::size_t{kStereoPlanes} * kChunkFrames * k,
                    kChunkFrames, surround + std::size_t{kSurroundPlanes} * kChunkFrames * k,
                    &out_count);
  }

  const unsigned upmixed_frames = kChunkFrames * chunks;
  std::fill(surround + std::size_t{kSurroundPlanes} * upmixed_frames, std::end(surround), 0.0f);
  std::fill(stereo_scratch_.begin(), stereo_scratch_.end(), 0.0f);
  unsigned out_frames = 0;
  virtualizer_->Process(surround, upmixed_frames, stereo_scratch_.data(), &out_frames);
  // The planes of `out` are `frames` apart, even if fewer frames were upmixed.
  MatrixConversion::ToPlanes(out, static_cast<int>(frames), stereo_scratch_.data(),
                             static_cast<int>(upmixed_frames), kStereoPlanes, nullptr);
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
