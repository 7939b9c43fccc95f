// How the virtualizer's entries answer to their callers and to damaged files.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "tests/upmix-lib/virtualizer_instance.h"
#include "upmix-lib/data_file.h"

namespace kelda::upmix_lib {
namespace {

// The result of a create from `file`; checks that a failure leaves nothing.
int32_t CreateFrom(std::span<const std::byte> file) {
  const TempDirectory directory;
  directory.Write("test.hki", file);
  directory.Write("hki.config", "test.hki");
  uint32_t handle = 0xABCD;
  const int32_t status = A0782(&handle, directory.path().c_str(), "hki.config");
  EXPECT_EQ(handle == 0xABCD, status != kOk);
  if (status == kOk) {
    EXPECT_EQ(A0810(&handle), kOk);
  }
  return status;
}

// A sealed file with one 32-bit word replaced.
template <typename Word>
std::vector<std::byte> With(std::size_t offset, Word word) {
  static_assert(sizeof(word) == 4);
  std::vector<std::byte> file = EncodeHrirSet(NoiseHrirs(8, 1));
  std::memcpy(&file.at(offset), &word, sizeof(word));
  Seal(file, kHrirKind);
  return file;
}

std::vector<std::byte> Cut(std::size_t size) {
  std::vector<std::byte> file = EncodeHrirSet(NoiseHrirs(8, 1));
  file.resize(size);
  Seal(file, kHrirKind);
  return file;
}

TEST(VirtualizerContract, OrderOfCallsIsChecked) {
  const TempDirectory directory;
  directory.Write("test.hki", EncodeHrirSet(NoiseHrirs(8, 1)));
  directory.Write("hki.config", "test.hki");
  const char* const path = directory.path().c_str();
  const std::vector<float> in(kPlanes * kBlock, 0.5f);
  std::vector<float> left(kBlock, 0.25f), right(kBlock, 0.25f);
  float* const out[2] = {left.data(), right.data()};
  const int32_t flags[kPlanes] = {};
  const auto render = [&](uint32_t handle, int32_t kind = 0, int32_t frames = 1024) {
    return A0560(handle, kind, frames, out, in.data(), flags);
  };
  uint32_t handle = 0;
  int32_t error = -1, detail = -1;

  EXPECT_EQ(A0782(nullptr, path, "hki.config"), kNullPointer);
  EXPECT_EQ(A0782(&handle, nullptr, "hki.config"), kNullPointer);
  EXPECT_EQ(A0782(&handle, path, nullptr), kNullPointer);
  EXPECT_EQ(A0782(&handle, path, "none"), kConfigMissing);
  EXPECT_EQ(handle, 0u);
  ASSERT_EQ(A0782(&handle, path, "hki.config"), kOk);
  EXPECT_EQ(render(handle), kNotInitialized);
  EXPECT_EQ(A0236(handle), kNotInitialized);
  EXPECT_EQ(A0783(handle, &error, &detail), kOk);
  EXPECT_EQ(error, static_cast<int32_t>(ErrorClass::kUsage));
  EXPECT_EQ(detail, kNotInitialized);

  ASSERT_EQ(A0556(handle), kOk);
  for (const int32_t kind : {-1, 3, std::numeric_limits<int32_t>::max()}) {
    EXPECT_EQ(render(handle, kind), kBadBlockKind);
  }
  for (const int32_t frames : {-1, 0, 1023, 1025}) {
    EXPECT_EQ(render(handle, 0, frames), kBadFrameCount) << frames;
    EXPECT_EQ(render(handle, 1, frames), kBadFrameCount) << frames;
  }
  EXPECT_EQ(render(handle, 2, -1), kBadFrameCount);
  EXPECT_EQ(render(handle, 2, 1025), kBadFrameCount);
  float* const no_right[2] = {left.data(), nullptr};
  EXPECT_EQ(A0560(handle, 0, 1024, nullptr, in.data(), flags), kNullPointer);
  EXPECT_EQ(A0560(handle, 0, 1024, no_right, in.data(), flags), kNullPointer);
  EXPECT_EQ(A0560(handle, 0, 1024, out, nullptr, flags), kNullPointer);
  EXPECT_EQ(A0560(handle, 0, 1024, out, in.data(), nullptr), kNullPointer);
  EXPECT_EQ(left, std::vector<float>(kBlock, 0.25f)) << "a failure wrote";
  EXPECT_EQ(right, std::vector<float>(kBlock, 0.25f)) << "a failure wrote";
  EXPECT_EQ(render(handle), kOk);

  EXPECT_EQ(A0212(handle), kOk);
  EXPECT_EQ(render(handle), kClosed);
  EXPECT_EQ(A0212(handle), kClosed);
  uint32_t stale = handle;
  EXPECT_EQ(A0810(&handle), kOk);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(A0810(nullptr), kNullPointer);
  EXPECT_EQ(A0810(&stale), kBadHandle);
  for (const uint32_t dead : {stale, 0u, 0xFFFFFFFFu}) {
    EXPECT_EQ(render(dead), kBadHandle);
    EXPECT_EQ(A0556(dead), kBadHandle);
    EXPECT_EQ(A0236(dead), kBadHandle);
    EXPECT_EQ(A0212(dead), kBadHandle);
    EXPECT_EQ(A0783(dead, &error, &detail), kBadHandle);
  }
}

TEST(HrirFile, DamageIsRefusedByItsOwnStatus) {
  constexpr std::size_t kInfo = sizeof(DataHeader);
  constexpr std::size_t kRoom = kInfo + sizeof(HrirInfo);
  constexpr std::size_t kDirections = kRoom + sizeof(RoomParameters);
  constexpr std::size_t kTaps = kDirections + kPlanes * sizeof(HrirPlane);
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  const std::vector<std::byte> good = EncodeHrirSet(NoiseHrirs(8, 1));
  ASSERT_EQ(good.size(), kTaps + kPlanes * kEars * 8 * sizeof(float));
  EXPECT_EQ(CreateFrom(good), kOk);

  EXPECT_EQ(CreateFrom(With(kInfo, 44100u)), kBadSampleRate);
  EXPECT_EQ(CreateFrom(With(kInfo + 4, 6u)), kBadCount);
  for (const uint32_t taps : {0u, 7u, 9u, kMaxHrirTaps + 1, 0xFFFFFFFFu, 0x40000008u}) {
    EXPECT_EQ(CreateFrom(With(kInfo + 8, taps)), kBadCount) << taps;
  }
  EXPECT_EQ(CreateFrom(With(kInfo + 12, 1u)), kBadReserved);
  std::vector<std::byte> endless = good;
  std::fill_n(endless.begin() + offsetof(HrirInfo, source) + kInfo, 128, std::byte{'x'});
  Seal(endless, kHrirKind);
  EXPECT_EQ(CreateFrom(endless), kBadText);

  EXPECT_EQ(CreateFrom(With(kRoom, 1.0f)), kOutOfRange);
  EXPECT_EQ(CreateFrom(With(kRoom + 8, kNan)), kNotFinite);
  EXPECT_EQ(CreateFrom(With(kRoom + 28, 1.0f)), kOutOfRange);
  EXPECT_EQ(CreateFrom(With(kDirections, 181.0f)), kOutOfRange);
  EXPECT_EQ(CreateFrom(With(kDirections + 4, -91.0f)), kOutOfRange);
  EXPECT_EQ(CreateFrom(With(kDirections + 8, kNan)), kNotFinite);
  EXPECT_EQ(CreateFrom(With(good.size() - 4, 17.0f)), kOutOfRange);
  EXPECT_EQ(CreateFrom(With(kTaps, kNan)), kNotFinite);

  // Cut, but sealed anew: only the counts can tell.
  for (std::size_t size = sizeof(DataHeader); size < good.size(); size += 13) {
    ASSERT_EQ(CreateFrom(Cut(size)), kBadCount) << size;
  }
}

TEST(HrirFile, ReturnsWhatWasEncoded) {
  HrirSet set = NoiseHrirs(100, 2);
  set.source = std::string(200, 's');
  set.room.size_m = 4.0f;
  set.directions[6] = {-120.0f, 15.0f};
  const TempDirectory directory;
  directory.Write("test.hki", EncodeHrirSet(set));
  HrirSet loaded;
  ASSERT_EQ(LoadHrirSet(directory.File("test.hki"), loaded), kOk);
  EXPECT_EQ(loaded.taps, 100);
  EXPECT_EQ(loaded.responses, set.responses);
  EXPECT_EQ(loaded.source, std::string(127, 's'));
  EXPECT_EQ(loaded.licence, set.licence);
  EXPECT_EQ(loaded.room.size_m, 4.0f);
  EXPECT_EQ(loaded.directions[6].azimuth_deg, -120.0f);
  EXPECT_EQ(loaded.directions[6].elevation_deg, 15.0f);
}

}  // namespace
}  // namespace kelda::upmix_lib
