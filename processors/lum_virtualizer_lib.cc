#include "processors/lum_virtualizer_lib.h"

#include <android/log.h>

#include <algorithm>
#include <cstddef>
#include <optional>

#include "pipeline/matrix_conversion.h"
#include "platform/include/upmix_lib.h"
#include "platform/may_block.h"
#include "processors/processing_block.h"
#include "settings/config_path.h"
#include "settings/tuning_files.h"

namespace kelda {
namespace {

constexpr char kTag[] = "KelApUpmmLum";

// The library's names for the place of a block in its stream.
constexpr int kKindRunning = 0;
constexpr int kKindAfterBreak = 1;
constexpr int kKindStreamStart = 2;

}  // namespace

LumVirtualizerLib::LumVirtualizerLib(unsigned channels) {
  for (unsigned c = 0; c < kInputChannels; ++c) channel_flags_[c] = c < channels ? 0 : 1;
  A0779();
}

LumVirtualizerLib::~LumVirtualizerLib() { Finish(); }

bool LumVirtualizerLib::LoadConfig(const std::string& path) {
  const std::optional<ConfigPath> config = SplitConfigPath(path);
  if (!config) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Music processor fails to initialize due to missing root path: %s",
                        BinFileReader::Basename(path));
    return false;
  }
  uint32_t handle = 0;
  if (const int32_t status = A0782(&handle, config->directory, config->file)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Failed to create library due to failure with error code %d.", status);
    return false;
  }
  handle_ = handle;
  initialized_ = false;
  if (const int32_t status = A0556(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to initialize library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
    return false;
  }
  initialized_ = true;
  if (const int32_t status = A0236(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to flush library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
    return false;
  }
  return true;
}

bool LumVirtualizerLib::Finish() {
  if (!HasHandle()) return true;
  if (const int32_t status = A0212(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to close library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
  }
  if (const int32_t status = A0810(&handle_)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Failed to destroy library due to failure with error code %d.", status);
  } else {
    handle_ = 0;
  }
  return true;
}

bool LumVirtualizerLib::Reset() {
  if (!HasHandle()) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "Unable to flush for library because of null handle.");
    return false;
  }
  block_state_ = BlockState::AfterBreak;
  if (const int32_t status = A0236(handle_)) {
    __android_log_print(
        ANDROID_LOG_ERROR, kTag,
        "Failed to flush library due to failure with error code %d. [detail code %d]", status,
        getErrorDetail());
    return false;
  }
  return true;
}

bool LumVirtualizerLib::Eof() {
  block_state_ = BlockState::StreamStart;
  return true;
}

bool LumVirtualizerLib::Process(float* in, unsigned frames, float* out, unsigned* out_frames) {
  int kind = kKindRunning;
  unsigned count = kBlockFrames;
  BlockState next = BlockState::Running;
  switch (block_state_) {
    case BlockState::Running:
      break;
    case BlockState::AfterBreak:
      kind = kKindAfterBreak;
      break;
    case BlockState::StreamStart:
      kind = kKindStreamStart;
      count = std::min(frames, kBlockFrames);
      next = BlockState::AfterBreak;
      // The count of frames, not of samples: one seventh of the invalid tail.
      std::fill_n(in + std::size_t{kInputChannels} * count, kBlockFrames - count, 0.0f);
      break;
  }
  if (!VirtualizeImpl(kind, count, out, in, channel_flags_.data())) {
    std::fill_n(out, std::size_t{2} * kBlockFrames, 0.0f);
  }
  block_state_ = next;
  *out_frames = kBlockFrames;
  return true;
}

bool LumVirtualizerLib::VirtualizeImpl(int kind, unsigned frames, float* out, const float* in,
                                       const int32_t* channel_flags) {
  if (!HasHandle()) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      __android_log_print(ANDROID_LOG_ERROR, kTag,
                          "Unable to process frames for library because of null handle.");
    });
    return false;
  }
  constexpr int kFrames = kBlockFrames;
  float in_planes[kInputChannels * kBlockFrames];
  float out_block[2 * kBlockFrames] = {};
  float* const out_planes[2] = {out_block, out_block + kBlockFrames};
  MatrixConversion::ToPlanar(in_planes, in, kFrames, kInputChannels, nullptr);
  if (const int32_t status = A0560(handle_, kind, static_cast<int32_t>(frames), out_planes,
                                   in_planes, channel_flags)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      __android_log_print(
          ANDROID_LOG_ERROR, kTag,
          "Frame processing in library failed due to failure with error code %d. [detail code %d]",
          status, getErrorDetail());
    });
    return false;
  }
  MatrixConversion::ToInterleave(out, out_block, kFrames, 2, nullptr);
  return true;
}

int LumVirtualizerLib::getErrorDetail() const {
  int32_t error = 0;
  int32_t detail = 0;
  A0783(handle_, &error, &detail);
  return detail;
}

}  // namespace kelda
