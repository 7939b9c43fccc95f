#include "diagnostics/pcm_data_dump.h"

#include <android/log.h>

#include "diagnostics/capture_file.h"
#include "platform/data_directory.h"
#include "platform/may_block.h"

namespace kelda {
namespace {

constexpr char kTag[] = "kelda_upm";

}  // namespace

PcmDataDump::~PcmDataDump() { Close(); }

void PcmDataDump::Open(const std::string& suffix, const std::string& name) {
  if (file_ != nullptr) return;
  const std::string file_name = "rawfile_" + name + "_" + suffix + ".raw";
  file_ = OpenCaptureFile(DataPath(file_name), "wb");
  if (file_ == nullptr) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "Failed to open file ('%s') for raw data output.",
                        file_name.c_str());
    return;
  }
  __android_log_print(ANDROID_LOG_INFO, kTag, "Open file ('%s') for raw data output.",
                      file_name.c_str());
}

void PcmDataDump::Write(const float* buffer, uint32_t bytes) {
  if (file_ == nullptr) return;
  MayBlock(BlockingReason::Capture, [&] { std::fwrite(buffer, 1, bytes, file_); });
}

void PcmDataDump::Close() {
  if (file_ == nullptr) return;
  std::fclose(file_);
  file_ = nullptr;
}

}  // namespace kelda
