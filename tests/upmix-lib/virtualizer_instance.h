#ifndef KELDA_TESTS_UPMIX_LIB_VIRTUALIZER_INSTANCE_H_
#define KELDA_TESTS_UPMIX_LIB_VIRTUALIZER_INSTANCE_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "processors/upmix_lib.h"
#include "tests/upmix-lib/noise.h"
#include "tests/upmix-lib/temp_directory.h"
#include "upmix-lib/hrir_set.h"

namespace kelda::upmix_lib {

inline constexpr std::size_t kBlock = kBlockFrames;

// HRIRs of decaying noise, no two alike, without a room.
inline HrirSet NoiseHrirs(int taps, uint32_t seed) {
  HrirSet set;
  set.source = "noise";
  set.licence = "none";
  set.taps = taps;
  set.room = {kRoomOffDb, kRoomOffDb, 0.1f, 3.0f, 5000.0f, {}};
  std::copy_n(kPlaneDirections, kPlanes, set.directions.begin());
  set.responses = Noise(std::size_t{kPlanes} * kEars * static_cast<std::size_t>(taps), seed);
  for (std::size_t i = 0; i < set.responses.size(); ++i) {
    const double tap = static_cast<double>(i % static_cast<std::size_t>(taps));
    set.responses[i] *= static_cast<float>(std::exp(-4.0 * tap / taps));
  }
  return set;
}

// A stereo result.
struct Ears {
  std::vector<float> left, right;
};

// A virtualizer driven through its C entries, from files written for it.
class VirtualizerInstance {
 public:
  explicit VirtualizerInstance(const HrirSet& hrirs) {
    Install(hrirs);
    EXPECT_EQ(A0779(), kOk);
    EXPECT_EQ(A0782(&handle_, directory_.path().c_str(), "hki.config"), kOk);
    EXPECT_EQ(A0556(handle_), kOk);
    EXPECT_EQ(A0236(handle_), kOk);
  }
  ~VirtualizerInstance() {
    EXPECT_EQ(A0212(handle_), kOk);
    EXPECT_EQ(A0810(&handle_), kOk);
  }
  VirtualizerInstance(const VirtualizerInstance&) = delete;
  VirtualizerInstance& operator=(const VirtualizerInstance&) = delete;

  uint32_t handle() const { return handle_; }
  const TempDirectory& directory() const { return directory_; }

  // Replaces the files that the instance was created from.
  void Install(const HrirSet& hrirs) const {
    directory_.Write("test.hki", EncodeHrirSet(hrirs));
    directory_.Write("hki.config", "test.hki\n");
  }

  // Renders one block, seven contiguous planes, and appends it to `to`.
  void Process(const std::vector<float>& planes, Ears* to, int32_t kind = 0,
               int32_t frames = kBlockFrames, std::array<int32_t, kPlanes> flags = {}) const {
    ASSERT_EQ(planes.size(), kPlanes * kBlock);
    std::vector<float> left(kBlock), right(kBlock);
    float* const out[2] = {left.data(), right.data()};
    ASSERT_EQ(A0560(handle_, kind, frames, out, planes.data(), flags.data()), kOk);
    to->left.insert(to->left.end(), left.begin(), left.end());
    to->right.insert(to->right.end(), right.begin(), right.end());
  }

 private:
  TempDirectory directory_;
  uint32_t handle_ = 0;
};

// Blocks of seven contiguous planes, convolved in the time domain; `blocks` long.
inline std::array<std::vector<double>, kEars> DirectConvolution(
    const HrirSet& hrirs, const std::vector<std::vector<float>>& blocks) {
  std::array<std::vector<double>, kEars> out;
  for (int ear = 0; ear < kEars; ++ear) {
    std::vector<double>& to = out[static_cast<std::size_t>(ear)];
    to.assign(blocks.size() * kBlock, 0.0);
    for (std::size_t at = 0; at < to.size(); ++at) {
      for (std::size_t plane = 0; plane < kPlanes; ++plane) {
        const float sample = blocks[at / kBlock][plane * kBlock + at % kBlock];
        if (sample == 0.0f) continue;
        const auto taps = hrirs.response(static_cast<int>(plane), ear);
        const std::size_t count = std::min(taps.size(), to.size() - at);
        for (std::size_t n = 0; n < count; ++n) to[at + n] += double{sample} * double{taps[n]};
      }
    }
  }
  return out;
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_VIRTUALIZER_INSTANCE_H_
