// No entry allocates while it processes, and no create leaves anything behind when memory
// runs out. A program of its own: it replaces operator new.
#include <gtest/gtest.h>

#include <functional>

#include "tests/laboratory/allocations.h"
#include "tests/laboratory/components.h"

namespace kelda::upmix_lib {
namespace {

constexpr const char* kDirectory = KELDA_DEFAULT_TUNING;

// `blocks` blocks allocate, free and refuse nothing.
void ExpectNoAllocation(Component& component, int blocks) {
  const Signal in = Noise(kPlanes * kBlock, 1);
  Signal out(kPlanes * kBlock);
  const float* from[kPlanes];
  float* to[kPlanes];
  for (std::size_t p = 0; p < kPlanes; ++p) {
    from[p] = &in[p * kBlock];
    to[p] = &out[p * kBlock];
  }
  const uint64_t news = test::NewCalls(), mallocs = test::MallocCalls();
  const int64_t live = test::LiveBlocks();
  int32_t failures = 0;
  for (int block = 0; block < blocks; ++block) {
    failures += component.Block(from, to) != kOk ? 1 : 0;
  }
  EXPECT_EQ(test::NewCalls(), news);
  EXPECT_EQ(test::MallocCalls(), mallocs);
  EXPECT_EQ(test::LiveBlocks(), live);
  EXPECT_EQ(failures, 0);
}

TEST(Memory, NoComponentAllocatesWhileItProcesses) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    ExpectNoAllocation(*kind.make(), 20);
  }
  // Changes of flags do not allocate either, nor does the block that fades from old data to new.
  VirtualizerInstance virtualizer(NoiseHrirs(256, 1));
  for (const int32_t flag : {0, 1, 0}) {
    virtualizer.flags[3] = flag;
    ASSERT_EQ(A0556(virtualizer.handle()), kOk);
    ExpectNoAllocation(virtualizer, 2);
  }
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
    if (created) {
      destroy();
    }
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

  const CinemaParameters parameters = CinemaDefaults();
  void* cinema = nullptr;
  ExpectNothingLeftAtAnyFailure(
      [&] {
        cinema = A0218(&parameters, kDirectory, "wired.hki.config");
        return cinema != nullptr;
      },
      [&] { EXPECT_EQ(A0213(&cinema), kOk); });
}

TEST(Memory, ReloadThatRunsOutOfMemoryLeavesTheInstanceAsItWas) {
  VirtualizerInstance virtualizer(NoiseHrirs(256, 1));
  virtualizer.directory().Write("data", EncodeHrirSet(NoiseHrirs(256, 2)));
  const int64_t live = test::LiveBlocks();
  for (const uint64_t n : {1u, 5u, 12u, 20u}) {
    test::FailNew(n);
    const int32_t status = A0556(virtualizer.handle());
    test::FailNew(0);
    EXPECT_EQ(status, kOutOfMemory) << n;
    EXPECT_EQ(test::LiveBlocks(), live) << n;
    ExpectNoAllocation(virtualizer, 1);
  }
}

}  // namespace
}  // namespace kelda::upmix_lib
