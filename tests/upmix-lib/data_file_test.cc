#include "upmix-lib/data_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <limits>
#include <memory>

#include "tests/upmix-lib/temp_directory.h"
#include "upmix-lib/config_file.h"
#include "upmix-lib/crc32.h"

namespace kelda::upmix_lib {
namespace {

constexpr DataKind kKind = {{'T', 'E', 'S', 'T'}, 3, 64};

std::vector<std::byte> SealedBytes(size_t size) {
  std::vector<std::byte> data(size);
  for (size_t i = 0; i < size; ++i) {
    data[i] = static_cast<std::byte>(i * 37);
  }
  Seal(data, kKind);
  return data;
}

TEST(Crc32, HasThePublishedCheckValue) {
  EXPECT_EQ(Crc32(std::as_bytes(std::span("123456789", 9))), 0xCBF43926u);
  EXPECT_EQ(Crc32({}), 0u);
}

TEST(Container, NamesEveryDamage) {
  const std::vector<std::byte> good = SealedBytes(64);
  ASSERT_EQ(CheckContainer(good, kKind), kOk);
  for (size_t position = 0; position < good.size(); ++position) {
    const Status expected = position < 4    ? kDataBadMagic
                            : position < 8  ? kDataBadVersion
                            : position < 12 ? kDataBadLength
                                            : kDataBadCrc;
    std::vector<std::byte> bad = good;
    bad[position] ^= std::byte{0x10};
    EXPECT_EQ(CheckContainer(bad, kKind), expected) << "byte " << position;
  }
  for (size_t length = 0; length < good.size(); ++length) {
    const std::vector<std::byte> cut(good.begin(), good.begin() + static_cast<ptrdiff_t>(length));
    EXPECT_EQ(CheckContainer(cut, kKind),
              length < sizeof(DataHeader) ? kDataTooShort : kDataBadLength)
        << length << " bytes";
  }
}

TEST(Container, FileIsReadWholeOrNotAtAll) {
  const TempDirectory directory;
  const std::vector<std::byte> untouched = {std::byte{42}};
  std::vector<std::byte> data = untouched;

  EXPECT_EQ(ReadDataFile(directory.File("none"), kKind, data), kDataMissing);
  EXPECT_EQ(ReadDataFile(directory.path(), kKind, data), kDataNotRegular);
  ASSERT_EQ(mkfifo(directory.File("pipe").c_str(), 0600), 0);
  EXPECT_EQ(ReadDataFile(directory.File("pipe"), kKind, data), kDataNotRegular);
  directory.Write("short", "TEST");
  EXPECT_EQ(ReadDataFile(directory.File("short"), kKind, data), kDataTooShort);
  directory.Write("long", SealedBytes(65));
  EXPECT_EQ(ReadDataFile(directory.File("long"), kKind, data), kDataTooLong);
  directory.Write("cut", std::span<const std::byte>(SealedBytes(64)).first(63));
  EXPECT_EQ(ReadDataFile(directory.File("cut"), kKind, data), kDataBadLength);
  EXPECT_EQ(data, untouched);

  directory.Write("good", SealedBytes(64));
  EXPECT_EQ(ReadDataFile(directory.File("good"), kKind, data), kOk);
  EXPECT_EQ(data, SealedBytes(64));
}

// Every parameter kind, from a buffer of exactly its size at an odd address.
template <typename Parameters>
void ExpectFieldsAreGuarded(const DataKind& kind, std::span<const ParameterField> fields) {
  const auto load = [&](Parameters parameters, Parameters& loaded) {
    Seal(std::as_writable_bytes(std::span(&parameters, 1)), kind);
    const auto blob = std::make_unique<std::byte[]>(sizeof(parameters) + 1);
    std::memcpy(blob.get() + 1, &parameters, sizeof(parameters));
    return LoadParameters(blob.get() + 1, kind, fields, loaded);
  };
  const auto defaults = DefaultParameters<Parameters>(kind, fields);
  Parameters loaded{};
  ASSERT_EQ(load(defaults, loaded), kOk);
  const auto bytes_of = [](const Parameters& parameters) {
    const auto bytes = std::as_bytes(std::span(&parameters, 1));
    return std::vector<std::byte>(bytes.begin(), bytes.end());
  };
  EXPECT_EQ(bytes_of(loaded), bytes_of(defaults));
  EXPECT_EQ(fields.size_bytes() / sizeof(ParameterField),
            (sizeof(Parameters) - sizeof(DataHeader)) / sizeof(float))
      << "a member without a field would go unchecked";

  for (const ParameterField& field : fields) {
    const auto with = [&](float value) {
      Parameters parameters = defaults;
      std::memcpy(reinterpret_cast<std::byte*>(&parameters) + field.offset_bytes, &value,
                  sizeof(value));
      return parameters;
    };
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    EXPECT_EQ(load(with(field.min), loaded), kOk) << field.name;
    EXPECT_EQ(load(with(field.max), loaded), kOk) << field.name;
    EXPECT_EQ(load(with(std::nextafter(field.min, -kInfinity)), loaded), kOutOfRange) << field.name;
    EXPECT_EQ(load(with(std::nextafter(field.max, kInfinity)), loaded), kOutOfRange) << field.name;
    EXPECT_EQ(load(with(kInfinity), loaded), kNotFinite) << field.name;
    EXPECT_EQ(load(with(std::numeric_limits<float>::quiet_NaN()), loaded), kNotFinite)
        << field.name;
  }
}

TEST(Parameters, EveryFieldIsFiniteAndInRange) {
  ExpectFieldsAreGuarded<LevelParameters>(kLevelKind, kLevelFields);
  ExpectFieldsAreGuarded<MusicParameters>(kMusicKind, kMusicFields);
  ExpectFieldsAreGuarded<CinemaParameters>(kCinemaKind, kCinemaFields);
}

TEST(Parameters, NothingBehindAWrongHeaderIsTouched) {
  // Only the header exists; a sanitizer sees any look behind it.
  const auto blob = std::make_unique<DataHeader>(DataHeader{{'K', 'L', 'E', 'V'}, 1, 60, 0});
  LevelParameters loaded{};
  EXPECT_EQ(LoadParameters(blob.get(), kLevelKind, kLevelFields, loaded), kDataBadLength);
  blob->version = 2;
  EXPECT_EQ(LoadParameters(blob.get(), kLevelKind, kLevelFields, loaded), kDataBadVersion);
  blob->magic[0] = 'X';
  EXPECT_EQ(LoadParameters(blob.get(), kLevelKind, kLevelFields, loaded), kDataBadMagic);
  EXPECT_EQ(LoadParameters(nullptr, kLevelKind, kLevelFields, loaded), kNullPointer);
}

TEST(ConfigFile, FirstTokenNamesAFileBesideIt) {
  const TempDirectory directory;
  const auto read = [&](std::string_view text) {
    directory.Write("config", text);
    std::string path = "untouched";
    const Status status = ReadConfigFile(directory.path().c_str(), "config", path);
    EXPECT_EQ(path == "untouched", status != kOk);
    return std::pair(status, path);
  };
  const auto good = std::pair(kOk, directory.File("my.ba"));
  EXPECT_EQ(read("my.ba"), good);
  EXPECT_EQ(read(" \r\n\tmy.ba\r\nother.ba\n"), good);
  EXPECT_EQ(read("my.ba\v#"), good);
  EXPECT_EQ(read(std::string(kMaxNameBytes, 'n')).first, kOk);

  using namespace std::string_view_literals;
  for (const std::string_view bad : {"/etc/passwd"sv, "a/b"sv, ".."sv, "../x"sv, "a..b"sv,
                                     "my.ba\0"sv, "my\x7F.ba"sv, "my\x1B.ba"sv}) {
    EXPECT_EQ(read(bad).first, kConfigBadName) << bad;
  }
  EXPECT_EQ(read(std::string(kMaxNameBytes + 1, 'n')).first, kConfigBadName);
  EXPECT_EQ(read("").first, kConfigNoName);
  EXPECT_EQ(read(" \n\t ").first, kConfigNoName);
  EXPECT_EQ(read(std::string(kMaxConfigBytes, ' ') + "my.ba").first, kConfigNoName);

  std::string path;
  EXPECT_EQ(ReadConfigFile(directory.path().c_str(), "none", path), kConfigMissing);
  EXPECT_EQ(ReadConfigFile(directory.path().c_str(), ".", path), kConfigNotRegular);
  EXPECT_EQ(ReadConfigFile(nullptr, "config", path), kNullPointer);
  EXPECT_EQ(ReadConfigFile(directory.path().c_str(), nullptr, path), kNullPointer);
}

}  // namespace
}  // namespace kelda::upmix_lib
