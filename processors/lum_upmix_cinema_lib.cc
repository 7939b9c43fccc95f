#include "processors/lum_upmix_cinema_lib.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "platform/audio_format.h"
#include "platform/include/upmix_lib.h"
#include "platform/log.h"
#include "platform/may_block.h"
#include "settings/config_path.h"
#include "settings/tuning_files.h"

namespace kelda {
LumUpmixCinemaLib::LumUpmixCinemaLib() {
  A0244();
  if (const int32_t status = A0333(&param_size_)) {
    LogError(log_tag::kCinema,
             "Failed to obtain memory size for the upm cinema library due to failure "
             "with error code %d.",
             status);
    param_size_ = 0;
  }
  param_data_.reserve(param_size_);  // so that loading does not allocate
}

LumUpmixCinemaLib::~LumUpmixCinemaLib() { Finish(); }

bool LumUpmixCinemaLib::Finish() {
  if (instance_ == nullptr) {
    return true;
  }
  if (const int32_t status = A0213(&instance_)) {
    LogError(log_tag::kCinema,
             "Failed to destroy the upm cinema library due to failure with error code %d.", status);
  } else {
    instance_ = nullptr;
  }
  return true;
}

bool LumUpmixCinemaLib::LoadConfig(const std::string& config_path, const std::string& param_path) {
  const std::optional<ConfigPath> config = SplitConfigPath(config_path);
  if (!config) {
    LogError(log_tag::kCinema, "Cinema processor fails to initialize due to missing root path: %s",
             BinFileReader::Basename(config_path));
    return false;
  }
  if (ParamFileReader::GetParamData(param_path, &param_data_, param_size_) != param_size_) {
    LogError(log_tag::kCinema, "Reloading Cinema Library failed due to read %s failed",
             BinFileReader::Basename(param_path));
    return false;
  }
  instance_ = A0218(param_data_.data(), config->directory, config->file);
  if (instance_ == nullptr) {
    LogError(log_tag::kCinema, "Initialization of the upm cinema library failed due to a failure.");
    return false;
  }
  return true;
}

bool LumUpmixCinemaLib::Process(const float* in, unsigned frames, float* out,
                                unsigned* out_frames) {
  if (instance_ == nullptr) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kCinema,
               "Unable to process frames for upm cinema library because of null handle.");
    });
    std::fill_n(out, std::size_t{kStereoPlanes} * frames, 0.0f);
    return false;
  }
  const float* const in_planes[kStereoPlanes] = {in, in + kPeriodFrames};
  float* const out_planes[kStereoPlanes] = {out, out + kPeriodFrames};
  if (const int32_t status = A0238(in_planes, out_planes, instance_)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(
          log_tag::kCinema,
          "Frame processing in the upm cinema library failed due to failure with error code %d.",
          status);
    });
    std::fill_n(out, std::size_t{kStereoPlanes} * kPeriodFrames, 0.0f);
    return false;
  }
  *out_frames = frames;
  return true;
}

void LumUpmixCinemaLib::Flush() {
  if (const int32_t status = A0593(instance_)) {
    LogError(log_tag::kCinema,
             "Failed to flush the upm cinema library due to failure with error code %d.", status);
  }
}

}  // namespace kelda
