#include "processors/lum_hp_eq_lib.h"

#include <cstddef>
#include <cstring>
#include <optional>

#include "platform/audio_format.h"
#include "platform/include/upmix_lib.h"
#include "platform/log.h"
#include "platform/may_block.h"
#include "settings/config_path.h"
#include "settings/tuning_files.h"

namespace kelda {
LumHpEqLib::LumHpEqLib()
    : handle_({A0243, A0214, A0237, A0332, A0562, A0812}, log_tag::kEqualizer),
      dump_(std::make_unique<PcmDataDump>()) {
  A0507();
}

bool LumHpEqLib::LoadConfig(const std::string& path) {
  const std::optional<ConfigPath> config = SplitConfigPath(path);
  if (!config) {
    LogError(log_tag::kEqualizer, "Fails to initialize due to missing root path: %s",
             BinFileReader::Basename(path));
    return false;
  }
  handle_.FinishQuietly();
  return handle_.Create(*config);
}

bool LumHpEqLib::Finish() {
  handle_.Finish();
  return true;
}

bool LumHpEqLib::Process(const float* in, unsigned frames, float* out, unsigned* out_frames) {
  if (!HasHandle()) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kEqualizer, "Unable to process frames for library because of null handle.");
    });
    return false;
  }
  std::memmove(out, in, std::size_t{kStereoPlanes} * kPeriodFrames * sizeof(float));
  float* const planes[kStereoPlanes] = {out, out + kPeriodFrames};
  if (const int32_t status = A0836(handle_.get(), planes)) {
    MayBlock(BlockingReason::LibraryFailure, [&] {
      LogError(log_tag::kEqualizer,
               "Frame processing failed due to failure with error code %d.[detail code %d]", status,
               getErrorDetail());
    });
    return false;
  }
  dump_->Write(out, frames * kStereoPlanes * unsigned{sizeof(float)});
  *out_frames = frames;
  return true;
}

bool LumHpEqLib::Reset() {
  if (!HasHandle()) {
    LogError(log_tag::kEqualizer, "Unable to flush library because of null handle.");
    return false;
  }
  return handle_.Flush();
}

void LumHpEqLib::OpenPcmData(const std::string& name) { dump_->Open("hpeq", name); }

void LumHpEqLib::ClosePcmData() { dump_->Close(); }

}  // namespace kelda
