#ifndef KELDA_PROCESSORS_LUM_UPMIX_LIB_H_
#define KELDA_PROCESSORS_LUM_UPMIX_LIB_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/nonblocking.h"

namespace kelda {

// Owns the signal library's music upmix: stereo to seven channels, in chunks of 64
// frames.
class LumUpmixLib {
 public:
  static constexpr int kChunkFrames = 64;
  LumUpmixLib();
  LumUpmixLib(const LumUpmixLib&) = delete;
  LumUpmixLib& operator=(const LumUpmixLib&) = delete;

  // Initialises the instance from a parameter file, which must have exactly the
  // size that the library reports. Returns false on failure. Control.
  bool LoadConfig(const std::string& path);
  // Upmixes 64 frames of the two planes `in` to as many of the seven planes `out`; `frames` does
  // not change that. What the library does not write stays as it was. On failure returns false
  // and silences `out`. On success sets *out_count to `frames` x 28, a count of bytes. Audio.
  bool Process(const float* const* in, unsigned frames, float* const* out,
               unsigned* out_count) KELDA_NONBLOCKING;

 private:
  uint32_t param_size_ = 0;
  std::vector<char> work_;  // the instance
  std::vector<char> param_data_;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_LUM_UPMIX_LIB_H_
