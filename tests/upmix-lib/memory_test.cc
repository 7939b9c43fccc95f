// No entry allocates while it processes, and no create leaves anything behind when memory
// runs out. A program of its own: it replaces operator new.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "processors/upmix_lib.h"
#include "tests/effect/allocations.h"
#include "tests/upmix-lib/noise.h"
#include "upmix-lib/data_formats.h"
#include "upmix-lib/status.h"

namespace kelda::upmix_lib {
namespace {

constexpr const char* kDirectory = KELDA_DEFAULT_TUNING;

std::vector<char> Blob(const char* name) {
  std::ifstream file(std::string(kDirectory) + "/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Planes that a component reads and writes.
struct Audio {
  std::vector<float> in = Noise(kPlanes * kBlockFrames, 1);
  std::vector<float> out = std::vector<float>(kPlanes * kBlockFrames);
  const float* in_planes[2] = {in.data(), in.data() + kBlockFrames};
  float* out_planes[kPlanes];
  Audio() {
    for (std::size_t plane = 0; plane < kPlanes; ++plane) {
      out_planes[plane] = out.data() + plane * kBlockFrames;
    }
  }
};

void ExpectNoAllocation(const std::function<int32_t()>& process) {
  EXPECT_EQ(process(), kOk);  // the first call may not allocate either, but may load
  const uint64_t news = test::NewCalls(), mallocs = test::MallocCalls();
  int32_t failures = 0;
  for (int block = 0; block < 20; ++block) failures += process() != kOk;
  EXPECT_EQ(test::NewCalls(), news);
  EXPECT_EQ(test::MallocCalls(), mallocs);
  EXPECT_EQ(failures, 0);
}

TEST(Memory, TheCountersCount) {
  const uint64_t news = test::NewCalls();
  uint32_t handle = 0;
  ASSERT_EQ(A0782(&handle, kDirectory, "wired.hki.config"), kOk);
  EXPECT_GT(test::NewCalls(), news + 5);
  EXPECT_EQ(A0810(&handle), kOk);
}

TEST(Memory, VirtualizerDoesNotAllocate) {
  Audio audio;
  uint32_t handle = 0;
  ASSERT_EQ(A0782(&handle, kDirectory, "wired.hki.config"), kOk);
  ASSERT_EQ(A0556(handle), kOk);
  int32_t block = 0;
  const auto process = [&] {
    const int32_t flags[kPlanes] = {block++ % 3};
    return A0560(handle, 0, kBlockFrames, audio.out_planes, audio.in.data(), flags);
  };
  ExpectNoAllocation(process);
  // The block that fades from old data to new, and the one after it, free nothing either.
  ASSERT_EQ(A0556(handle), kOk);
  const int64_t live = test::LiveBlocks();
  const uint64_t news = test::NewCalls();
  int32_t failures = process();
  failures += process();
  EXPECT_EQ(test::LiveBlocks(), live);
  EXPECT_EQ(test::NewCalls(), news);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(A0810(&handle), kOk);
}

TEST(Memory, EqualizerDoesNotAllocate) {
  Audio audio;
  uint32_t handle = 0;
  ASSERT_EQ(A0243(&handle, kDirectory, "wired.ba.config"), kOk);
  ASSERT_EQ(A0214(handle), kOk);
  ExpectNoAllocation([&] { return A0836(handle, audio.out_planes); });
  EXPECT_EQ(A0812(&handle), kOk);
}

TEST(Memory, MusicUpmixAndLevelControlDoNotAllocate) {
  Audio audio;
  uint32_t work_bytes = 0, param_bytes = 0;
  ASSERT_EQ(A0511(&work_bytes, &param_bytes), kOk);
  std::vector<char> music(work_bytes);
  ASSERT_EQ(A0559(Blob("upmix.music.hps.bin").data(), music.data()), kOk);
  ExpectNoAllocation([&] { return A0239(audio.in_planes, audio.out_planes, music.data()); });

  ASSERT_EQ(A0557(&work_bytes, &param_bytes), kOk);
  std::vector<char> level(work_bytes);
  ASSERT_EQ(A0508(level.data(), kBlockFrames), kOk);
  ASSERT_EQ(A0122(level.data(), Blob("upl.music.bin").data()), kOk);
  ExpectNoAllocation([&] { return A0217(level.data(), audio.in.data(), audio.out.data()); });
}

TEST(Memory, CinemaDoesNotAllocate) {
  Audio audio;
  void* instance = A0218(Blob("upmix.cinema.hps.bin").data(), kDirectory, "wired.hki.config");
  ASSERT_NE(instance, nullptr);
  ExpectNoAllocation([&] { return A0238(audio.in_planes, audio.out_planes, instance); });
  EXPECT_EQ(A0213(&instance), kOk);
}

// Lets every allocation of `create` fail in turn; it returns whether it worked.
void ExpectNothingLeftAtAnyFailure(const std::function<bool()>& create,
                                   const std::function<void()>& destroy) {
  ASSERT_TRUE(create());
  destroy();
  const int64_t live = test::LiveBlocks();
  uint64_t failures = 0;
  for (bool created = false; !created; ++failures) {
    test::FailNew(failures + 1);
    created = create();
    test::FailNew(0);
    if (created) destroy();
    ASSERT_EQ(test::LiveBlocks(), live) << "allocation " << failures + 1;
    ASSERT_LT(failures, 10000u);
  }
  EXPECT_GT(failures, 5u);
}

TEST(Memory, CreatesLeaveNothingWhenMemoryRunsOut) {
  uint32_t handle = 0;
  const auto worked = [&](int32_t status) {
    EXPECT_EQ(status, handle != 0 ? kOk : kOutOfMemory);
    return handle != 0;
  };
  ExpectNothingLeftAtAnyFailure(
      [&] { return worked(A0782(&handle, kDirectory, "wired.hki.config")); },
      [&] { EXPECT_EQ(A0810(&handle), kOk); });
  ExpectNothingLeftAtAnyFailure(
      [&] { return worked(A0243(&handle, kDirectory, "wired.ba.config")); },
      [&] { EXPECT_EQ(A0812(&handle), kOk); });

  const std::vector<char> parameters = Blob("upmix.cinema.hps.bin");
  void* cinema = nullptr;
  ExpectNothingLeftAtAnyFailure(
      [&] {
        cinema = A0218(parameters.data(), kDirectory, "wired.hki.config");
        return cinema != nullptr;
      },
      [&] { EXPECT_EQ(A0213(&cinema), kOk); });
}

TEST(Memory, ReloadThatRunsOutOfMemoryLeavesTheInstanceAsItWas) {
  Audio audio;
  const int32_t flags[kPlanes] = {};
  uint32_t handle = 0;
  ASSERT_EQ(A0782(&handle, kDirectory, "wired.hki.config"), kOk);
  ASSERT_EQ(A0556(handle), kOk);
  const int64_t live = test::LiveBlocks();
  for (const uint64_t n : {1u, 5u, 12u, 20u}) {
    test::FailNew(n);
    EXPECT_EQ(A0556(handle), kOutOfMemory) << n;
    test::FailNew(0);
    EXPECT_EQ(test::LiveBlocks(), live) << n;
    EXPECT_EQ(A0560(handle, 0, kBlockFrames, audio.out_planes, audio.in.data(), flags), kOk);
  }
  EXPECT_EQ(A0810(&handle), kOk);
}

}  // namespace
}  // namespace kelda::upmix_lib
