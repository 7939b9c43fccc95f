#include "processors/upl.h"

#include <algorithm>
#include <cstddef>

#include "platform/audio_format.h"
#include "platform/include/upmix_lib.h"
#include "platform/log.h"
#include "platform/may_block.h"
#include "settings/tuning_files.h"

namespace kelda {
namespace {

constexpr int kProcessed = 0;
constexpr int kNotProcessed = 2;

// A closed library may need 4; posix_memalign refuses less than a pointer's size.
constexpr std::size_t kWorkAlignment = std::max(std::size_t{4}, sizeof(void*));

}  // namespace

Upl::Upl() {
  uint32_t work_size = 0;
  if (const int32_t status = A0557(&work_size, &param_size_)) {
    LogError(log_tag::kLevelControl,
             "Failed to obtain memory size for the level contorl library due to failure "
             "with error code %d.",
             status);
    param_size_ = 0;
    return;
  }
  param_data_.resize(param_size_);
  PrepareWorkMemory(static_cast<int>(work_size));
  A0834();
}

void Upl::PrepareWorkMemory(int size) {
  void* memory = nullptr;
  if (const int error = posix_memalign(&memory, kWorkAlignment, static_cast<std::size_t>(size))) {
    LogError(
        log_tag::kLevelControl,
        "Failed to allocate memory for the level contorl library due to failure with error code "
        "%d.",
        error);
    return;
  }
  // An instance that the memory held before must not be taken for this one.
  std::fill_n(static_cast<char*>(memory), size, '\0');
  work_.reset(static_cast<char*>(memory));
}

bool Upl::LoadConfig(const std::string& path) {
  configured_ = false;
  if (!path.empty()) {
    if (ParamFileReader::GetParamData(path, &param_data_, param_size_) == 0) {
      LogError(log_tag::kLevelControl, "Loading Upl Library failed due to read %s failed",
               BinFileReader::Basename(path));
      return false;
    }
  }
  if (const int32_t status = A0508(work_.get(), kPeriodFrames)) {
    LogError(log_tag::kLevelControl,
             "Initialization of the level contorl library failed due to a failure with "
             "error code %d.",
             status);
    return false;
  }
  if (const int32_t status = A0122(work_.get(), param_data_.data())) {
    LogError(log_tag::kLevelControl,
             "Configuration of the level contorl library failed due to failure with "
             "error code %d.",
             status);
    return false;
  }
  configured_ = true;
  return true;
}

int Upl::ProcFrame(float* out, const float* in, int* frames) {
  if (out == nullptr || in == nullptr) {
    return kNotProcessed;
  }
  if (!configured_) {
    if (in != out) {
      std::copy_n(in, std::size_t{kStereoPlanes} * static_cast<unsigned>(*frames), out);
    }
    return kNotProcessed;
  }
  if (const int32_t status = A0217(work_.get(), in, out)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(
          log_tag::kLevelControl,
          "Frame processing in the level contorl library failed due to failure with error code %d.",
          status);
    });
    return kNotProcessed;
  }
  *frames = kPeriodFrames;
  return kProcessed;
}

}  // namespace kelda
