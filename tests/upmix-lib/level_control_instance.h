#ifndef KELDA_TESTS_UPMIX_LIB_LEVEL_CONTROL_INSTANCE_H_
#define KELDA_TESTS_UPMIX_LIB_LEVEL_CONTROL_INSTANCE_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "processors/upmix_lib.h"
#include "upmix-lib/data_file.h"

namespace kelda::upmix_lib {

inline LevelParameters DefaultLevel() {
  return DefaultParameters<LevelParameters>(kLevelKind, kLevelFields);
}

// A level control driven through its C entries, in work memory of exactly the reported
// size at an odd address.
class LevelControlInstance {
 public:
  explicit LevelControlInstance(LevelParameters parameters) {
    uint32_t work_bytes = 0, param_bytes = 0;
    EXPECT_EQ(A0834(), kOk);
    EXPECT_EQ(A0557(&work_bytes, &param_bytes), kOk);
    EXPECT_EQ(param_bytes, sizeof(parameters));
    memory_ = std::make_unique<std::byte[]>(work_bytes + 1);
    Seal(std::as_writable_bytes(std::span(&parameters, 1)), kLevelKind);
    EXPECT_EQ(A0508(work(), kBlockFrames), kOk);
    EXPECT_EQ(A0122(work(), &parameters), kOk);
  }

  void* work() const { return memory_.get() + 1; }

  // Processes whole blocks of interleaved frames.
  std::vector<float> Process(const std::vector<float>& in) const {
    std::vector<float> out(in.size());
    for (size_t at = 0; at < in.size(); at += 2 * kBlockFrames) {
      EXPECT_EQ(A0217(work(), &in[at], &out[at]), kOk);
    }
    return out;
  }

 private:
  std::unique_ptr<std::byte[]> memory_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_TESTS_UPMIX_LIB_LEVEL_CONTROL_INSTANCE_H_
