#ifndef KELDA_DIAGNOSTICS_PCM_DUMP_H_
#define KELDA_DIAGNOSTICS_PCM_DUMP_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/nonblocking.h"

namespace kelda {

// Writes interleaved 32-bit float frames, native byte order, without a header, to
// a file, up to a number of seconds at 48 kHz. Each capture needs a new object:
//
//   auto dump = std::make_unique<PcmDump>();
//   dump->Open("/data/vendor/kelda/" + PcmDump::GenerateFileName(), 2, 10);
//   dump->Write(*samples, frames);  // on the audio thread
class PcmDump {
 public:
  static constexpr uint32_t kBitDepthBytes = 4;  // bytes a sample

  PcmDump() = default;
  PcmDump(const PcmDump&) = delete;
  PcmDump& operator=(const PcmDump&) = delete;
  ~PcmDump();

  // The name of a capture that starts now, local time:
  // pcmdump_YYYY_MMDD_HHMM_SS.pcm. Control thread.
  static std::string GenerateFileName();

  // Seconds of output that the properties ask to be captured. If it is below 1, nothing begins or
  // ends a capture. Only debuggable builds capture. Control.
  static int32_t RequestedSeconds();

  // Opens `path` for appending. Returns 1, or 0 if it cannot be opened or is no regular
  // file. Control.
  int Open(const std::string& path, uint32_t channels, uint32_t seconds);
  // Appends `frames` frames that start at `first_sample`. Returns 1, or 0 with
  // nothing written if no file is open or the block would pass the limit. Audio:
  // one buffered write.
  int Write(const float& first_sample, uint32_t frames) KELDA_NONBLOCKING;
  // Closes the file. Returns 1, or 0 if none is open or closing failed; no file is
  // open afterwards in any case. Control.
  int Close();

 private:
  FILE* file_ = nullptr;
  char buffer_[64 * 1024];  // the stream's
  uint32_t channels_ = 0;
  uint32_t frame_limit_ = 0;
  uint32_t frames_written_ = 0;
};

}  // namespace kelda

#endif  // KELDA_DIAGNOSTICS_PCM_DUMP_H_
