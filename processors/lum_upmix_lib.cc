#include "processors/lum_upmix_lib.h"

#include <algorithm>

#include "platform/audio_format.h"
#include "platform/include/upmix_lib.h"
#include "platform/log.h"
#include "platform/may_block.h"
#include "settings/tuning_files.h"

namespace kelda {
LumUpmixLib::LumUpmixLib() {
  A0216();
  uint32_t work_size = 0;
  if (const int32_t status = A0511(&work_size, &param_size_)) {
    LogError(log_tag::kMusic,
             "Failed to obtain memory size for library due to failure with error code %d.", status);
    param_size_ = 0;
    return;
  }
  work_.resize(work_size);
  param_data_.reserve(param_size_);  // so that loading does not allocate
}

bool LumUpmixLib::LoadConfig(const std::string& path) {
  if (ParamFileReader::GetParamData(path, &param_data_, param_size_) != param_size_) {
    LogError(log_tag::kMusic, "Reloading Library failed due to read %s failed", path.c_str());
    return false;
  }
  if (const int32_t status = A0559(param_data_.data(), work_.data())) {
    LogError(log_tag::kMusic,
             "Initialization of library failed due to a failure with error code %d.", status);
    return false;
  }
  return true;
}

bool LumUpmixLib::Process(const float* const* in, unsigned frames, float* const* out,
                          unsigned* out_count) {
  if (const int32_t status = A0239(in, out, work_.data())) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kMusic,
               "Frame processing in library failed due to failure with error code %d.", status);
    });
    for (int c = 0; c < kSurroundPlanes; ++c) {
      std::fill_n(out[c], kChunkFrames, 0.0f);
    }
    return false;
  }
  *out_count = frames * kSurroundPlanes * unsigned{sizeof(float)};
  return true;
}

}  // namespace kelda
