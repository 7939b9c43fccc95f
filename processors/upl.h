#ifndef KELDA_PROCESSORS_UPL_H_
#define KELDA_PROCESSORS_UPL_H_

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio_format.h"
#include "platform/nonblocking.h"

namespace kelda {

// Owns the signal library's level control.
class Upl {
 public:
  struct AlignedAllocDeleter {
    void operator()(char* memory) const { std::free(memory); }
  };

  Upl();
  Upl(const Upl&) = delete;
  Upl& operator=(const Upl&) = delete;

  // Replaces the instance's work memory. Control.
  void PrepareWorkMemory(int size);
  // Initialises the instance and applies the parameters of the file `path`. If `path` is
  // empty it applies the parameters that were loaded before, which clears the signal
  // history. Returns false on failure. Control.
  bool LoadConfig(const std::string& path);
  void* GetUplHandle() const { return work_.get(); }
  // One block of 1024 INTERLEAVED stereo frames. Returns 0 if it was processed,
  // with *frames set to 1024, else 2. Before LoadConfig has succeeded, `out` is then a
  // copy of *frames frames of `in`; after a failure it is what the library left. Audio.
  int ProcFrame(float* out, const float* in, int* frames) KELDA_NONBLOCKING;

  // Latency in frames: the limiter's look-ahead.
  static unsigned GetUplDelay() { return kLevelControlDelayFrames; }

 private:
  std::unique_ptr<char, AlignedAllocDeleter> work_;  // the instance
  bool configured_ = false;
  uint32_t param_size_ = 0;
  std::vector<char> param_data_;
};

}  // namespace kelda

#endif  // KELDA_PROCESSORS_UPL_H_
