#ifndef KELDA_PROCESSORS_LUM_HP_EQ_LIB_H_
#define KELDA_PROCESSORS_LUM_HP_EQ_LIB_H_

#include <memory>
#include <string>

#include "diagnostics/pcm_data_dump.h"
#include "platform/nonblocking.h"
#include "processors/library_handle.h"

namespace kelda {

// Owns the signal library's headphone equalizer.
class LumHpEqLib {
 public:
  LumHpEqLib();
  LumHpEqLib(const LumHpEqLib&) = delete;
  LumHpEqLib& operator=(const LumHpEqLib&) = delete;

  // Replaces the instance by one made from the configuration file `path`, which
  // needs a directory. Returns false on failure. Control.
  bool LoadConfig(const std::string& path);
  // Ends the instance, if there is one. Returns true. Control.
  bool Finish();
  // One block: in and out are planar stereo with planes of 1024 samples, and may be
  // the same. Sets *out_frames to `frames` on success; on failure returns false
  // and, if there is an instance, `out` holds the input. Audio.
  bool Process(const float* in, unsigned frames, float* out,
               unsigned* out_frames) KELDA_NONBLOCKING;
  // Clears the signal history. Control.
  bool Reset();
  // Detail code of the last error.
  int getErrorDetail() const { return handle_.ErrorDetail(); }
  bool HasHandle() const { return handle_.get() != 0; }

  // Raw capture of the output of Process: block after block, the left plane and then the right.
  void OpenPcmData(const std::string& name);
  void ClosePcmData();

 private:
  LibraryHandle handle_;
  std::unique_ptr<PcmDataDump> dump_;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_LUM_HP_EQ_LIB_H_
