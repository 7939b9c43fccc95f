#ifndef KELDA_PROCESSORS_LUM_UPMIX_CINEMA_LIB_H_
#define KELDA_PROCESSORS_LUM_UPMIX_CINEMA_LIB_H_

#include <cstdint>
#include <string>
#include <vector>

#include "platform/nonblocking.h"

namespace kelda {

// Owns the signal library's cinema upmix: stereo to stereo, in blocks of 1024
// frames.
class LumUpmixCinemaLib {
 public:
  LumUpmixCinemaLib();
  LumUpmixCinemaLib(const LumUpmixCinemaLib&) = delete;
  LumUpmixCinemaLib& operator=(const LumUpmixCinemaLib&) = delete;
  ~LumUpmixCinemaLib();

  // Destroys the instance, if there is one. Returns true. Control.
  bool Finish();
  // Makes an instance from a configuration file, which needs a directory, and a
  // parameter file, which must have exactly the size that the library reports. An
  // earlier instance must have been finished. Returns false on failure. Control.
  bool LoadConfig(const std::string& config_path, const std::string& param_path);
  // One block of planar stereo with planes of 1024 samples; `in` and `out` do not
  // overlap. Sets *out_frames to `frames` and returns true; on failure silences
  // `out` (without an instance, its first `frames` x 2 samples only) and returns
  // false. Audio.
  bool Process(const float* in, unsigned frames, float* out,
               unsigned* out_frames) KELDA_NONBLOCKING;
  // Clears the signal history of the instance, which must exist. Control.
  void Flush();

 private:
  void* instance_ = nullptr;
  uint32_t param_size_ = 0;
  std::vector<char> param_data_;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_LUM_UPMIX_CINEMA_LIB_H_
