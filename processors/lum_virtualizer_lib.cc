#include "processors/lum_virtualizer_lib.h"

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
namespace {

// The library's numbers for the place of a block in its stream.
constexpr int kKindRunning = 0;
constexpr int kKindAfterBreak = 1;
constexpr int kKindStreamStart = 2;

}  // namespace

LumVirtualizerLib::LumVirtualizerLib(unsigned channels)
    : handle_({A0782, A0556, A0236, A0783, A0212, A0810}, log_tag::kMusic) {
  for (unsigned c = 0; c < kSurroundPlanes; ++c) {
    channel_flags_[c] = c < channels ? 0 : 1;
  }
  A0779();
}

bool LumVirtualizerLib::LoadConfig(const std::string& path) {
  const std::optional<ConfigPath> config = SplitConfigPath(path);
  if (!config) {
    LogError(log_tag::kMusic, "Music processor fails to initialize due to missing root path: %s",
             BinFileReader::Basename(path));
    return false;
  }
  return handle_.Create(*config);
}

bool LumVirtualizerLib::Finish() {
  handle_.Finish();
  return true;
}

bool LumVirtualizerLib::Reset() {
  if (!HasHandle()) {
    LogError(log_tag::kMusic, "Unable to flush for library because of null handle.");
    return false;
  }
  block_state_ = BlockState::AfterBreak;
  return handle_.Flush();
}

bool LumVirtualizerLib::Eof() {
  block_state_ = BlockState::StreamStart;
  return true;
}

bool LumVirtualizerLib::Process(const float* in, unsigned frames, float* out,
                                unsigned* out_frames) {
  int kind = kKindRunning;
  unsigned count = kPeriodFrames;
  BlockState next = BlockState::Running;
  switch (block_state_) {
    case BlockState::Running:
      break;
    case BlockState::AfterBreak:
      kind = kKindAfterBreak;
      break;
    case BlockState::StreamStart:
      kind = kKindStreamStart;
      count = std::min(frames, unsigned{kPeriodFrames});
      next = BlockState::AfterBreak;
      break;
  }
  if (!VirtualizeImpl(kind, count, out, in, channel_flags_.data())) {
    std::fill_n(out, std::size_t{kStereoPlanes} * kPeriodFrames, 0.0f);
  }
  block_state_ = next;
  *out_frames = kPeriodFrames;
  return true;
}

bool LumVirtualizerLib::VirtualizeImpl(int kind, unsigned frames, float* out, const float* in,
                                       const int32_t* channel_flags) {
  if (!HasHandle()) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kMusic, "Unable to process frames for library because of null handle.");
    });
    return false;
  }
  std::fill_n(out, std::size_t{kStereoPlanes} * kPeriodFrames, 0.0f);
  float* const out_planes[kStereoPlanes] = {out, out + kPeriodFrames};
  if (const int32_t status =
          A0560(handle_.get(), kind, static_cast<int32_t>(frames), out_planes, in, channel_flags)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(
          log_tag::kMusic,
          "Frame processing in library failed due to failure with error code %d. [detail code %d]",
          status, getErrorDetail());
    });
    return false;
  }
  return true;
}

}  // namespace kelda
