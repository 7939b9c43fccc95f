#include "diagnostics/pcm_dump.h"

#include <cutils/properties.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>

#include "diagnostics/capture_file.h"
#include "platform/audio_format.h"
#include "platform/log.h"
#include "platform/may_block.h"

namespace kelda {
PcmDump::~PcmDump() {
  if (file_ != nullptr) {
    std::fclose(file_);
  }
}

std::string PcmDump::GenerateFileName() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char name[80];
  std::snprintf(name, sizeof(name), "pcmdump_%d_%02d%02d_%02d%02d_%02d.pcm", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  return name;
}

int32_t PcmDump::RequestedSeconds() {
  const int32_t request = property_get_int32("vendor.kelda.pcmdump", 0);
  return property_get_int32("ro.debuggable", 0) != 0 ? request : 0;
}

int PcmDump::Open(const std::string& path, uint32_t channels, uint32_t seconds) {
  channels_ = channels;
  frame_limit_ = seconds * kSampleRateHz;
  file_ = OpenCaptureFile(path, "ab");
  if (file_ == nullptr) {
    LogError(log_tag::kPcmDump, "Failed to open: %s\n", std::strerror(errno));
    return 0;
  }
  // Without a buffer of ours, the stream would allocate one at the first write.
  std::setvbuf(file_, buffer_, _IOFBF, sizeof(buffer_));
  return 1;
}

int PcmDump::Write(const float& first_sample, uint32_t frames) {
  if (file_ == nullptr) {
    MayBlock(BlockingReason::Capture,
             [&] { LogError(log_tag::kPcmDump, "No Open File: %s\n", std::strerror(errno)); });
    return 0;
  }
  if (uint64_t{frames_written_} + frames > frame_limit_) {
    MayBlock(BlockingReason::Capture, [&] { LogError(log_tag::kPcmDump, "Excess Dump Limit"); });
    return 0;
  }
  MayBlock(BlockingReason::Capture, [&] {
    std::fwrite(&first_sample, std::size_t{channels_} * kBitDepthBytes, frames, file_);
  });
  frames_written_ += frames;
  return 1;
}

int PcmDump::Close() {
  if (file_ == nullptr) {
    LogError(log_tag::kPcmDump, "No Open File: %s\n", std::strerror(errno));
    return 0;
  }
  const int result = std::fclose(file_);
  file_ = nullptr;
  if (result != 0) {
    LogError(log_tag::kPcmDump, "Failed to close: %s\n", std::strerror(errno));
    return 0;
  }
  return 1;
}

}  // namespace kelda
