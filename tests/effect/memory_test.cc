// No allocation on the audio path; no exception, no leak and no half-done command
// when memory runs out on the control path.
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <numeric>
#include <vector>

#include "tests/effect/fake_upmix_lib.h"
#include "tests/effect/test_support.h"
#include "tests/laboratory/allocations.h"
#include "tests/laboratory/effect_client.h"

namespace kelda {
namespace {

using test::Bytes;
using test::Effect;
using test::Lines;
using test::Param;

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
  const uint64_t news = test::NewCalls(), mallocs = test::MallocCalls();
  const int64_t live = test::LiveBlocks();
  const auto effect = std::make_unique<Effect>();
  // One by one, the library's among them: the record and the five stages.
  EXPECT_GT(test::NewCalls() - news, 6u);
  EXPECT_GT(test::LiveBlocks() - live, 6);
#ifdef KELDA_COUNTS_MALLOC
  EXPECT_GT(test::MallocCalls() - mallocs, test::NewCalls() - news);  // posix_memalign
#else
  EXPECT_EQ(test::MallocCalls(), mallocs);
#endif
}

TEST_F(MemoryTest, ProcessAllocatesNothing) {
  for (const bool capture : {false, true}) {
    property_set("ro.debuggable", "1");
    property_set("vendor.kelda.pcmdump", capture ? "30" : "0");
    Effect effect;
    effect.Enable();
    std::vector<float> block(2 * 8000);
    audio_buffer_t buffer{0, {block.data()}};
    const auto expect_none = [&](const std::string& where) {
      for (const unsigned frames : {480u, 1024u, 3840u, 8000u, 1u, 0u, 960u, 1024u, 2049u, 480u}) {
        buffer.frameCount = frames;
        const uint64_t before = test::NewCalls() + test::MallocCalls();
        const int32_t result = (*effect.handle())->process(effect.handle(), &buffer, &buffer);
        const uint64_t after = test::NewCalls() + test::MallocCalls();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(after, before) << where << ", " << frames << " frames";
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

TEST_F(MemoryTest, CreateWithoutMemory) {
  const audio_effect_library_t& library = test::Library();  // loaded before memory fails
  const auto sentinel = reinterpret_cast<effect_handle_t>(this);
  int32_t result = -12;
  uint64_t n = 0;
  while (result != 0) {
    ASSERT_LT(++n, 1000u);
    effect_handle_t handle = sentinel;
    fake::Reset();
    test::TakeLog();
    const int64_t live = test::LiveBlocks();
    test::FailNew(n);
    result = library.create_effect(&test::kUuid, 0, 0, &handle);
    test::FailNew(0);
    if (result == 0) {
      EXPECT_EQ(library.release_effect(handle), 0);
    } else {
      ASSERT_EQ(result, -12) << n;
      EXPECT_EQ(handle, sentinel) << n;
      EXPECT_EQ(test::TakeLog(), Lines{"E/KelUpm: ERROR: Failed to create upm lib: std::bad_alloc"})
          << n;
    }
    test::TakeLog();
    // A level control that was made stays, with its parameter data.
    EXPECT_EQ(test::LiveBlocks() - live, fake::Count("A0834") > 0 ? 2 : 0) << n;
    EXPECT_EQ(fake::LiveInstances(), 0);
  }
  EXPECT_GT(n, 20u);
}

// What the instance makes of one more period.
std::vector<float> Played(Effect& effect) {
  std::vector<float> in(2 * 1024), out;
  std::iota(in.begin(), in.end(), 1.0f);
  effect.Command({.code = EFFECT_CMD_ENABLE});  // refused where it is enabled
  effect.Process(in, &out);
  return out;
}

// One allocation of a command fails, for every allocation: the instance is and plays as one
// that never got the command, and afterwards the command can be sent again.
TEST_F(MemoryTest, CommandsWithoutMemory) {
  property_set("ro.debuggable", "1");
  property_set("vendor.kelda.pcmdump", "1");
  using test::Request;
  const int nowhere = open("/dev/null", O_WRONLY);
  const auto param = [](uint32_t id, const std::string& value) {
    return Request{.code = EFFECT_CMD_SET_PARAM, .data = Param(id, value)};
  };
  const struct {
    uint32_t mode;  // in which it is sent
    Request request;
  } kCases[] = {
      {0, param(0, Bytes(1))},
      {1, param(0, Bytes(2))},
      {3, param(0, Bytes(0))},
      {3, {.code = EFFECT_CMD_INIT}},
      {3, {.code = EFFECT_CMD_ENABLE}},
      {3, param(1, Bytes(1))},
      {3, param(3, "")},
      {3, param(10, "com.some.other.package.with.a.name&1")},
      {3, param(10, "com.some.other.package.with.a.name")},
      {1, test::DeviceRequest(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP)},
      {2, test::DeviceRequest(AUDIO_DEVICE_OUT_BLUETOOTH_A2DP)},
      {1, {.code = EFFECT_CMD_DUMP, .data = Bytes(static_cast<uint32_t>(nowhere))}},
  };
  int refusals = 0;
  for (std::size_t i = 0; i < 2 * std::size(kCases); ++i) {
    const auto& [mode, request] = kCases[i / 2];
    // There is no memory for the messages about missing files either.
    setenv("KELDA_DATA_DIR", (i % 2 == 0 ? dir() : Path("missing")).c_str(), 1);
    const std::string error =
        "E/KelUpm: ERROR: command " + std::to_string(request.code) + " failed: std::bad_alloc";
    bool refused = true;
    for (uint64_t n = 1; refused; ++n) {
      ASSERT_LT(n, 1000u);
      SCOPED_TRACE(testing::Message()
                   << "command " << request.code << " in mode " << mode << ", allocation " << n);
      fake::Reset();
      Effect effect, untouched;
      for (Effect* const e : {&effect, &untouched}) {
        e->SetMode(mode);
        e->SetDevice(kWired);
        if (request.code != EFFECT_CMD_ENABLE) {
          Played(*e);
        }
      }
      test::TakeLog();
      // Made before, so that the call that fails is the library's.
      std::string data = request.data, reply(16, '\xAA');
      uint32_t reply_size = request.reply_size;
      const auto command = (*effect.handle())->command;
      const uint64_t before = test::NewCalls();
      test::FailNew(n);
      const int32_t result = command(effect.handle(), request.code,
                                     request.cmd_size.value_or(static_cast<uint32_t>(data.size())),
                                     data.data(), &reply_size, reply.data());
      test::FailNew(0);
      refused = test::NewCalls() - before >= n;
      if (!refused) {
        break;
      }
      ++refusals;
      ASSERT_EQ(result, -22);
      EXPECT_EQ(reply, std::string(16, '\xAA'));
      EXPECT_EQ(test::TakeLog().back(), error);
      if (request.code == EFFECT_CMD_INIT) {  // no engine is left
        std::vector<float> out;
        EXPECT_EQ(effect.Command({.code = EFFECT_CMD_ENABLE}).result, -38);
        EXPECT_EQ(test::TakeLog(), Lines{"E/KelUpm: ERROR: ebable at uninitialized state"});
        EXPECT_EQ(effect.Process({1, 2}, &out), -61);
        EXPECT_EQ(effect.Command(param(0, Bytes(1))).status(), -22);
      } else {
        EXPECT_EQ(effect.Mode(), mode);
        EXPECT_EQ(effect.Dump(), untouched.Dump());
        EXPECT_EQ(Played(effect), Played(untouched));
      }
      test::TakeLog();
      effect.Command(request);
      const Lines log = test::TakeLog();
      untouched.Command(request);
      EXPECT_EQ(test::TakeLog(), log);
      EXPECT_EQ(Played(effect), Played(untouched));
      EXPECT_EQ(effect.Dump(), untouched.Dump());
    }
    EXPECT_EQ(fake::LiveInstances(), 0) << request.code;
  }
  EXPECT_GT(refusals, 50);
  close(nowhere);
}

}  // namespace
}  // namespace kelda
