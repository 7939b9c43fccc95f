// The music upmix, driven as its host does.
#ifndef KELDA_TESTS_UPMIX_LIB_MUSIC_INSTANCE_H_
#define KELDA_TESTS_UPMIX_LIB_MUSIC_INSTANCE_H_

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <vector>

#include "processors/upmix_lib.h"
#include "tests/upmix-lib/mixes.h"
#include "upmix-lib/data_file.h"
#include "upmix-lib/plane_upmix.h"

namespace kelda::upmix_lib {

using Planes = std::array<Signal, kPlanes>;

inline MusicParameters MusicDefaults() {
  return DefaultParameters<MusicParameters>(kMusicKind, kMusicFields);
}

inline void SealMusic(MusicParameters& parameters) {
  Seal(std::as_writable_bytes(std::span(&parameters, 1)), kMusicKind);
}

// An instance in work memory of exactly the reported size, at an odd address.
class Music {
 public:
  explicit Music(const MusicParameters& parameters = MusicDefaults()) {
    A0216();
    uint32_t work_bytes = 0, param_bytes = 0;
    EXPECT_EQ(A0511(&work_bytes, &param_bytes), 0);
    EXPECT_EQ(param_bytes, sizeof(MusicParameters));
    memory_.resize(work_bytes + 1);
    EXPECT_EQ(A0559(&parameters, work()), 0);
  }

  void* work() { return memory_.data() + 1; }

  Planes Upmix(const Stereo& in) {
    Planes planes;
    planes.fill(Signal(in.left.size()));
    for (size_t at = 0; at + kHopFrames <= in.left.size(); at += kHopFrames) {
      const float* from[2] = {&in.left[at], &in.right[at]};
      float* to[kPlanes];
      for (size_t p = 0; p < kPlanes; ++p) {
        to[p] = &planes[p][at];
      }
      EXPECT_EQ(A0239(from, to, work()), 0);
    }
    return planes;
  }

 private:
  std::vector<char> memory_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_MUSIC_INSTANCE_H_
