#include "diagnostics/pcm_data_dump.h"

#include "diagnostics/capture_file.h"
#include "platform/data_directory.h"
#include "platform/log.h"
#include "platform/may_block.h"

namespace kelda {
PcmDataDump::~PcmDataDump() { Close(); }

void PcmDataDump::Open(const std::string& suffix, const std::string& name) {
  if (file_ != nullptr) {
    return;
  }
  const std::string file_name = "rawfile_" + name + "_" + suffix + ".raw";
  file_ = OpenCaptureFile(DataPath(file_name), "wb");
  if (file_ == nullptr) {
    LogWarning(log_tag::kPcmDataDump, "Failed to open file ('%s') for raw data output.",
               file_name.c_str());
    return;
  }
  LogInfo(log_tag::kPcmDataDump, "Open file ('%s') for raw data output.", file_name.c_str());
}

void PcmDataDump::Write(const float* buffer, uint32_t bytes) {
  if (file_ == nullptr) {
    return;
  }
  MayBlock(BlockingReason::Capture, [&] { std::fwrite(buffer, 1, bytes, file_); });
}

void PcmDataDump::Close() {
  if (file_ == nullptr) {
    return;
  }
  std::fclose(file_);
  file_ = nullptr;
}

}  // namespace kelda
