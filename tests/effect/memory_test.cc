// No allocation on the audio path; no exception, no leak and no half-done command
// when memory runs out on the control path.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <functional>

#include "tests/effect/allocations.h"
#include "tests/effect/effect_client.h"
#include "tests/effect/fake_upmix_lib.h"

namespace kelda {
namespace {

using test::Bytes;
using test::Effect;
using test::Lines;
using test::Param;
using test::Reply;

constexpr uint32_t kWired = AUDIO_DEVICE_OUT_WIRED_HEADSET;

class MemoryTest : public test::DataDirTest {
 protected:
  MemoryTest() {
    WriteTuning("personalized.hki");
    __android_log_set_logger([](const __android_log_message* message) {
      test::PauseNew(true);  // a platform's log does not throw
      test::CaptureLog(message);
      test::PauseNew(false);
    });
    Write("tunedapp_list", "com.a.package.name.too.long.for.a.string.object,CINEMA\n\n# c\n");
  }
};

TEST_F(MemoryTest, TheCountersCount) {
  const uint64_t news = test::NewCalls();
  const uint64_t mallocs = test::MallocCalls();
  const int64_t live = test::LiveBlocks();
  const auto effect = std::make_unique<Effect>();
  // One by one, the library's among them: the record and the five stages.
  EXPECT_GT(test::NewCalls() - news, 6u);
  EXPECT_GT(test::LiveBlocks() - live, 6);
#ifndef __SANITIZE_ADDRESS__
  EXPECT_GT(test::MallocCalls() - mallocs, test::NewCalls() - news);  // posix_memalign
#else
  (void)mallocs;
#endif
}

TEST_F(MemoryTest, ProcessAllocatesNothing) {
  for (const bool capture : {false, true}) {
    property_set("ro.debuggable", "1");
    property_set("vendor.kelda.pcmdump", capture ? "30" : "0");
    Effect effect;
    effect.Enable();
    std::vector<float> block(2 * 8000);
    audio_buffer_t buffer{};
    buffer.f32 = block.data();
    const auto process = (*effect.handle())->process;
    const auto expect_none = [&](const std::string& where) {
      for (const unsigned frames : {480u, 1024u, 3840u, 8000u, 1u, 0u, 960u, 1024u, 2049u, 480u}) {
        buffer.frameCount = frames;
        const uint64_t news = test::NewCalls(), mallocs = test::MallocCalls();
        const int32_t result = process(effect.handle(), &buffer, &buffer);
        const uint64_t more_news = test::NewCalls() - news;
        const uint64_t more_mallocs = test::MallocCalls() - mallocs;
        EXPECT_EQ(result, 0);
        EXPECT_EQ(more_news, 0u) << where << ", " << frames << " frames";
        EXPECT_EQ(more_mallocs, 0u) << where << ", " << frames << " frames";
      }
    };
    expect_none("no device");
    effect.SetDevice(kWired);
    expect_none("off with the equalizer");
    for (const uint32_t mode : {1u, 2u, 3u, 0u, 2u}) {
      effect.SetMode(mode);
      expect_none("fade into mode " + std::to_string(mode));
      for (const uint32_t hrtf : {1u, 2u}) {
        effect.SetParam(1, hrtf);
        expect_none("mode " + std::to_string(mode) + ", hrtf " + std::to_string(hrtf));
      }
    }
    effect.Reset();
    expect_none("after a reset");
  }
}

}  // namespace
}  // namespace kelda
