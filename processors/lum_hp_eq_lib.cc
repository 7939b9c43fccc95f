#include "processors/lum_hp_eq_lib.h"

#include <android/log.h>

#include <cstddef>
#include <cstring>
#include <optional>

#include "platform/include/upmix_lib.h"
#include "platform/may_block.h"
#include "processors/processing_block.h"
#include "settings/config_path.h"
#include "settings/tuning_files.h"

namespace kelda {
namespace {

constexpr char kTag[] = "KELAPhpeq";

}  // namespace

LumHpEqLib::LumHpEqLib() : dump_(std::make_unique<PcmDataDump>()) { A0507(); }

LumHpEqLib::~LumHpEqLib() {
  dump_.reset();
  Finish();
}

bool LumHpEqLib::LoadConfig(const std::string& path) {
  const std::optional<ConfigPath> config = SplitConfigPath(path);
  if (!config) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Fails to initialize due to missing root path: %s",
                        BinFileReader::Basename(path));
    return false;
  }
  if (HasHandle()) {
    A0562(handle_);
    if (A0812(&handle_) == 0) handle_ = 0;
  }
  uint32_t handle = 0;
  if (const int32_t status = A0243(&handle, config->directory, config->file)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Failed to create library due to failure with error code %d.", status);
    return false;
  }
  handle_ = handle;
  initialized_ = false;
  if (const int32_t status = A0214(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to initialize library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
    return false;
  }
  initialized_ = true;
  return Reset();
}

bool LumHpEqLib::Finish() {
  if (!HasHandle()) return true;
  if (const int32_t status = A0562(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to close library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
  }
  if (const int32_t status = A0812(&handle_)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Failed to destroy library due to failure with error code %d.", status);
  } else {
    handle_ = 0;
  }
  return true;
}

bool LumHpEqLib::Process(const float* in, unsigned frames, float* out, unsigned* out_frames) {
  if (!HasHandle()) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      __android_log_print(ANDROID_LOG_ERROR, kTag,
                          "Unable to process frames for library because of null handle.");
    });
    return false;
  }
  std::memmove(out, in, std::size_t{2} * kBlockFrames * sizeof(float));
  float* const planes[2] = {out, out + kBlockFrames};
  if (const int32_t status = A0836(handle_, planes)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      __android_log_print(
          ANDROID_LOG_ERROR, kTag,
          "Frame processing failed due to failure with error code %d.[detail code %d]", status,
          getErrorDetail());
    });
    return false;
  }
  dump_->Write(out, frames * 2 * unsigned{sizeof(float)});
  *out_frames = frames;
  return true;
}

bool LumHpEqLib::Reset() {
  if (!HasHandle()) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Unable to flush library because of null handle.");
    return false;
  }
  if (const int32_t status = A0237(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to flush library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
    return false;
  }
  return true;
}

int LumHpEqLib::getErrorDetail() const {
  int32_t error = 0;
  int32_t detail = 0;
  A0332(handle_, &error, &detail);
  return detail;
}

void LumHpEqLib::OpenPcmData(const std::string& name) { dump_->Open("hpeq", name); }

void LumHpEqLib::ClosePcmData() { dump_->Close(); }

}  // namespace kelda
