#ifndef KELDA_TESTS_UPMIX_LIB_EQUALIZER_INSTANCE_H_
#define KELDA_TESTS_UPMIX_LIB_EQUALIZER_INSTANCE_H_

#include <gtest/gtest.h>

#include <span>
#include <vector>

#include "processors/upmix_lib.h"
#include "tests/upmix-lib/temp_directory.h"
#include "upmix-lib/equalizer_file.h"

namespace kelda::upmix_lib {

// An equalizer driven through its C entries, from a file written for it.
class EqualizerInstance {
 public:
  explicit EqualizerInstance(const EqualizerTuning& tuning) {
    const TempDirectory directory;
    directory.Write("test.ba", BuildEqualizerFile(tuning));
    directory.Write("ba.config", "test.ba\n");
    EXPECT_EQ(A0507(), kOk);
    EXPECT_EQ(A0243(&handle_, directory.path().c_str(), "ba.config"), kOk);
    EXPECT_EQ(A0214(handle_), kOk);
    EXPECT_EQ(A0237(handle_), kOk);
  }
  ~EqualizerInstance() {
    EXPECT_EQ(A0562(handle_), kOk);
    EXPECT_EQ(A0812(&handle_), kOk);
  }
  EqualizerInstance(const EqualizerInstance&) = delete;
  EqualizerInstance& operator=(const EqualizerInstance&) = delete;

  uint32_t handle() const { return handle_; }

  // Filters whole blocks in place.
  void Process(std::span<float> left, std::span<float> right) const {
    for (size_t at = 0; at < left.size(); at += kBlockFrames) {
      float* const planes[2] = {&left[at], &right[at]};
      ASSERT_EQ(A0836(handle_, planes), kOk);
    }
  }

 private:
  uint32_t handle_ = 0;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_EQUALIZER_INSTANCE_H_
