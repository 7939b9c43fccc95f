#ifndef KELDA_DIAGNOSTICS_PCM_DATA_DUMP_H_
#define KELDA_DIAGNOSTICS_PCM_DATA_DUMP_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/nonblocking.h"

namespace kelda {

// Writes the bytes it is given to a raw file in the data directory.
class PcmDataDump {
 public:
  PcmDataDump() = default;
  PcmDataDump(const PcmDataDump&) = delete;
  PcmDataDump& operator=(const PcmDataDump&) = delete;
  ~PcmDataDump();

  // Opens rawfile_<name>_<suffix>.raw, truncating it. Does nothing while a file is
  // open; a failure is logged and leaves none open. Control.
  void Open(const std::string& suffix, const std::string& name);
  // Appends `bytes` bytes if a file is open. Audio.
  void Write(const float* buffer, uint32_t bytes) KELDA_NONBLOCKING;
  // Closes the file if one is open. Control.
  void Close();

 private:
  FILE* file_ = nullptr;
};

}  // namespace kelda

#endif  // KELDA_DIAGNOSTICS_PCM_DATA_DUMP_H_
