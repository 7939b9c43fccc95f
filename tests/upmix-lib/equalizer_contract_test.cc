// How the equalizer's entries answer to their callers and to damaged files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/upmix-lib/equalizer_instance.h"
#include "upmix-lib/data_file.h"

namespace kelda::upmix_lib {
namespace {

EqualizerTuning TwoBands() {
  EqualizerTuning tuning;
  tuning.curves = {
      {{{BandType::kPeaking, 1000, -6, 1}, {BandType::kHighShelf, 8000, 3, 0.7f}}, {}}};
  return tuning;
}

// The result of a create from `file`; checks that a failure leaves nothing.
int32_t CreateFrom(std::span<const std::byte> file) {
  const TempDirectory directory;
  directory.Write("test.ba", file);
  directory.Write("ba.config", "test.ba");
  uint32_t handle = 0xABCD;
  const int32_t status = A0243(&handle, directory.path().c_str(), "ba.config");
  EXPECT_EQ(handle == 0xABCD, status != kOk);
  if (status == kOk) {
    EXPECT_EQ(A0812(&handle), kOk);
  }
  return status;
}

// `file` with one 32-bit word replaced, sealed again.
template <typename Word>
std::vector<std::byte> With(std::vector<std::byte> file, size_t offset, Word word) {
  static_assert(sizeof(word) == 4);
  std::memcpy(&file[offset], &word, sizeof(word));
  Seal(file, kEqualizerKind);
  return file;
}

TEST(EqualizerContract, OrderOfCallsIsChecked) {
  const TempDirectory directory;
  directory.Write("test.ba", BuildEqualizerFile(TwoBands()));
  directory.Write("ba.config", "test.ba");
  std::vector<float> samples(2 * kBlockFrames, 0.25f);
  float* planes[2] = {samples.data(), samples.data() + kBlockFrames};
  int32_t error = -1, detail = -1;
  uint32_t handle = 0;

  EXPECT_EQ(A0243(nullptr, directory.path().c_str(), "ba.config"), kNullPointer);
  EXPECT_EQ(A0243(&handle, nullptr, "ba.config"), kNullPointer);
  EXPECT_EQ(A0243(&handle, directory.path().c_str(), nullptr), kNullPointer);
  EXPECT_EQ(A0243(&handle, directory.path().c_str(), "none"), kConfigMissing);
  ASSERT_EQ(A0243(&handle, directory.path().c_str(), "ba.config"), kOk);
  ASSERT_NE(handle, 0u);

  EXPECT_EQ(A0836(handle, planes), kNotInitialized);
  EXPECT_EQ(A0332(handle, &error, &detail), kOk);
  EXPECT_EQ(error, static_cast<int32_t>(ErrorClass::kUsage));
  EXPECT_EQ(detail, kNotInitialized);
  EXPECT_EQ(A0237(handle), kNotInitialized);
  EXPECT_EQ(A0562(handle), kNotInitialized);
  EXPECT_EQ(samples, std::vector<float>(2 * kBlockFrames, 0.25f)) << "a failure wrote";

  EXPECT_EQ(A0214(handle), kOk);
  EXPECT_EQ(A0332(handle, &error, &detail), kOk);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(detail, 0);
  EXPECT_EQ(A0836(handle, nullptr), kNullPointer);
  float* const no_right[2] = {planes[0], nullptr};
  EXPECT_EQ(A0836(handle, no_right), kNullPointer);
  EXPECT_EQ(A0332(handle, nullptr, &detail), kNullPointer);
  EXPECT_EQ(A0836(handle, planes), kOk);

  EXPECT_EQ(A0562(handle), kOk);
  EXPECT_EQ(A0836(handle, planes), kClosed);
  EXPECT_EQ(A0562(handle), kClosed);
  EXPECT_EQ(A0214(handle), kOk);
  EXPECT_EQ(A0836(handle, planes), kOk);

  uint32_t stale = handle;
  EXPECT_EQ(A0812(&handle), kOk);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(A0812(&handle), kBadHandle);
  EXPECT_EQ(A0812(nullptr), kNullPointer);
  EXPECT_EQ(A0812(&stale), kBadHandle);
  for (const uint32_t dead : {stale, 0u, 0xFFFFFFFFu}) {
    EXPECT_EQ(A0214(dead), kBadHandle);
    EXPECT_EQ(A0237(dead), kBadHandle);
    EXPECT_EQ(A0836(dead, planes), kBadHandle);
    EXPECT_EQ(A0562(dead), kBadHandle);
    EXPECT_EQ(A0332(dead, &error, &detail), kBadHandle);
  }
}

TEST(EqualizerContract, HoldsTwoHundredAndFiftySixInstances) {
  const TempDirectory directory;
  directory.Write("test.ba", BuildEqualizerFile(TwoBands()));
  directory.Write("ba.config", "test.ba");
  const auto create = [&](uint32_t* handle) {
    return A0243(handle, directory.path().c_str(), "ba.config");
  };
  std::vector<uint32_t> handles(256);
  for (uint32_t& handle : handles) {
    ASSERT_EQ(create(&handle), kOk);
  }
  uint32_t one_more = 0;
  EXPECT_EQ(create(&one_more), kTooManyInstances);
  EXPECT_EQ(one_more, 0u);
  for (uint32_t& handle : handles) {
    EXPECT_EQ(A0812(&handle), kOk);
  }
}

TEST(EqualizerContract, DamagedFilesAreRefused) {
  const std::vector<std::byte> good = BuildEqualizerFile(TwoBands());
  ASSERT_EQ(CreateFrom(good), kOk);
  for (size_t length = 0; length < good.size(); length += 4) {
    std::vector<std::byte> cut(good.begin(), good.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_NE(CreateFrom(cut), kOk) << length << " bytes";
    if (length >= sizeof(DataHeader)) {
      Seal(cut, kEqualizerKind);
      EXPECT_EQ(CreateFrom(cut), kBadCount) << length << " sealed bytes";
    }
  }
  std::vector<std::byte> flipped = good;
  flipped[40] ^= std::byte{1};
  EXPECT_EQ(CreateFrom(flipped), kDataBadCrc);

  const size_t info = sizeof(DataHeader), band = info + sizeof(EqualizerInfo);
  const auto u32 = [&](size_t offset, uint32_t word) {
    return CreateFrom(With(good, offset, word));
  };
  const auto f32 = [&](size_t offset, float word) { return CreateFrom(With(good, offset, word)); };
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, form), 2), kBadType);
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, curves), 0), kBadCount);
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, curves), 2), kBadCount);
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, curves), 3), kBadCount);
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, count), 1), kBadCount);
  EXPECT_EQ(u32(info + offsetof(EqualizerInfo, count), 0xFFFFFFFF), kBadCount);
  EXPECT_EQ(u32(band + offsetof(EqualizerBand, type), kBandTypes), kBadType);

  const struct {
    size_t offset;
    float min, max;
  } numbers[] = {
      {info + offsetof(EqualizerInfo, preamp_db), kPreampMinDb, kPreampMaxDb},
      {band + offsetof(EqualizerBand, freq_hz), kBandMinHz, kBandMaxHz},
      {band + offsetof(EqualizerBand, gain_db), kBandMinDb, kBandMaxDb},
      {band + offsetof(EqualizerBand, q), kBandMinQ, kBandMaxQ},
      {band + sizeof(EqualizerBand) + offsetof(EqualizerBand, q), kBandMinQ, kBandMaxQ},
  };
  for (const auto& number : numbers) {
    EXPECT_EQ(f32(number.offset, number.min), kOk);
    EXPECT_EQ(f32(number.offset, number.max), kOk);
    EXPECT_EQ(f32(number.offset, std::nextafter(number.min, -1e9f)), kOutOfRange);
    EXPECT_EQ(f32(number.offset, std::nextafter(number.max, 1e9f)), kOutOfRange);
    EXPECT_EQ(f32(number.offset, std::numeric_limits<float>::infinity()), kNotFinite);
    EXPECT_EQ(f32(number.offset, std::numeric_limits<float>::quiet_NaN()), kNotFinite);
  }
}

TEST(EqualizerContract, CountsAndTapsAreBounded) {
  EqualizerTuning bands = TwoBands();
  bands.curves[0].bands.resize(kMaxEqualizerBands, bands.curves[0].bands[0]);
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(bands)), kOk);
  bands.curves[0].bands.resize(kMaxEqualizerBands + 1, bands.curves[0].bands[0]);
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(bands)), kBadCount);

  EqualizerTuning fir;
  fir.form = EqualizerForm::kFir;
  fir.curves.resize(2);
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(fir)), kBadCount) << "no taps";
  fir.curves[0].taps.assign(kMaxEqualizerTaps, kMaxEqualizerTap);
  fir.curves[1].taps = fir.curves[0].taps;
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(fir)), kOk);
  fir.curves[1].taps.back() = std::nextafter(-kMaxEqualizerTap, -1e9f);
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(fir)), kOutOfRange);
  fir.curves[1].taps.back() = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(fir)), kNotFinite);
  fir.curves[0].taps.push_back(0);
  fir.curves[1].taps.push_back(0);
  EXPECT_EQ(CreateFrom(BuildEqualizerFile(fir)), kDataTooLong);
}

}  // namespace
}  // namespace kelda::upmix_lib
