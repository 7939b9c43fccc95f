// The entries of an instance that was released: the framework's pointer is gone
// then, so that only the inside can be asked.
#include <gtest/gtest.h>

#include "effect/instance.h"
#include "effect/interface_table.h"
#include "tests/effect/test_support.h"

namespace kelda {
namespace {

class ReleasedInstanceTest : public test::DataDirTest {};

TEST_F(ReleasedInstanceTest, RefusesEverything) {
  effect_module_s module{};
  module.itfe = &kInterface;
  const auto handle = reinterpret_cast<effect_handle_t>(&module);
  float sample[2] = {};
  audio_buffer_t buffer{};
  buffer.frameCount = 1;
  buffer.f32 = sample;
  effect_descriptor_t descriptor;
  int32_t reply = 77;
  uint32_t reply_size = sizeof(reply);
  EXPECT_EQ(Upmix_Command(handle, EFFECT_CMD_INIT, 0, nullptr, &reply_size, &reply), -22);
  EXPECT_EQ(reply, 77);
  EXPECT_EQ(Upmix_Process(handle, &buffer, &buffer), -22);
  EXPECT_EQ(Upmix_GetDescriptor(handle, &descriptor), -22);
  EXPECT_EQ(test::TakeLog(),
            (test::Lines{"E/KelUpm: ERROR: command at uninitialized state",
                         "E/KelUpm: ERROR: Uninitialized", "E/KelUpm: ERROR: Uninitialized"}));
}

}  // namespace
}  // namespace kelda
