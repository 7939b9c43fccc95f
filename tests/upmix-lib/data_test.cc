// The data files: every damage is refused by a status of its own, and nothing changes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <stdexcept>

#include "tests/laboratory/components.h"
#include "upmix-lib/files/config_file.h"
#include "upmix-lib/files/crc32.h"

namespace kelda::upmix_lib {
namespace {

using Bytes = std::vector<std::byte>;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr DataKind kKind = {{'T', 'E', 'S', 'T'}, 3, 64};

Bytes SealedBytes(std::size_t size) {
  Bytes data(size);
  for (std::size_t i = 0; i < size; ++i) {
    data[i] = static_cast<std::byte>(i * 37);
  }
  Seal(data, kKind);
  return data;
}

Bytes Cut(const Bytes& bytes, std::size_t size) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

TEST(Container, NamesEveryDamage) {
  EXPECT_EQ(Crc32(std::as_bytes(std::span("123456789", 9))), 0xCBF43926u);  // as published
  const Bytes good = SealedBytes(64);
  ASSERT_EQ(CheckContainer(good, kKind), kOk);
  for (std::size_t position = 0; position < good.size(); ++position) {
    const Status expected = position < 4    ? kDataBadMagic
                            : position < 8  ? kDataBadVersion
                            : position < 12 ? kDataBadLength
                                            : kDataBadCrc;
    Bytes bad = good;
    bad[position] ^= std::byte{0x10};
    EXPECT_EQ(CheckContainer(bad, kKind), expected) << "byte " << position;
    EXPECT_EQ(CheckContainer(Cut(good, position), kKind),
              position < sizeof(DataHeader) ? kDataTooShort : kDataBadLength)
        << position << " bytes";
  }
}

TEST(Container, FileIsReadWholeOrNotAtAll) {
  const TemporaryFolder directory;
  ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
  directory.Write("short", "TEST");
  directory.Write("long", SealedBytes(65));
  directory.Write("cut", Cut(SealedBytes(64), 63));
  directory.Write("good", SealedBytes(64));
  const std::pair<const char*, Status> kFiles[] = {
      {"none", kDataMissing},   {".", kDataNotRegular}, {"pipe", kDataNotRegular},
      {"short", kDataTooShort}, {"long", kDataTooLong}, {"cut", kDataBadLength}};
  const Bytes untouched = {std::byte{42}};
  Bytes data = untouched;
  for (const auto& [name, status] : kFiles) {
    EXPECT_EQ(ReadDataFile(directory / name, kKind, data), status) << name;
    EXPECT_EQ(data, untouched) << name;
  }
  EXPECT_EQ(ReadDataFile(directory / "good", kKind, data), kOk);
  EXPECT_EQ(data, SealedBytes(64));
}

// Numbers at the bounds of a field and beyond, and what becomes of each.
std::vector<std::pair<float, Status>> Numbers(float min, float max) {
  return {{min, kOk},
          {max, kOk},
          {std::nextafter(min, -kInfinity), kOutOfRange},
          {std::nextafter(max, kInfinity), kOutOfRange},
          {kInfinity, kNotFinite},
          {kNan, kNotFinite}};
}

// Every parameter kind, from a buffer of exactly its size at an odd address.
template <typename Parameters>
void ExpectFieldsAreGuarded(const DataKind& kind, std::span<const ParameterField> fields) {
  Parameters loaded{};
  const auto load = [&](const Parameters& parameters) {
    const Parameters sealed = Sealed(parameters, kind);
    const auto blob = std::make_unique<std::byte[]>(sizeof(sealed) + 1);
    std::memcpy(blob.get() + 1, &sealed, sizeof(sealed));
    return LoadParameters(blob.get() + 1, kind, fields, loaded);
  };
  const auto defaults = DefaultParameters<Parameters>(kind, fields);
  ASSERT_EQ(load(defaults), kOk);
  const auto bytes = std::as_bytes(std::span(&loaded, 1));
  EXPECT_TRUE(std::ranges::equal(bytes, std::as_bytes(std::span(&defaults, 1))));
  EXPECT_EQ(fields.size(), (sizeof(Parameters) - sizeof(DataHeader)) / sizeof(float))
      << "a member without a field would go unchecked";
  for (const ParameterField& field : fields) {
    for (const auto& [value, status] : Numbers(field.min, field.max)) {
      Parameters parameters = defaults;
      std::memcpy(reinterpret_cast<std::byte*>(&parameters) + field.offset_bytes, &value,
                  sizeof(value));
      EXPECT_EQ(load(parameters), status) << field.name << " = " << value;
    }
  }
  // Only the header exists; a sanitizer sees any look behind it.
  const auto header = std::make_unique<DataHeader>(defaults.header);
  ++header->byte_length;
  EXPECT_EQ(LoadParameters(header.get(), kind, fields, loaded), kDataBadLength);
  ++header->version;
  EXPECT_EQ(LoadParameters(header.get(), kind, fields, loaded), kDataBadVersion);
}

TEST(Parameters, EveryFieldIsFiniteAndInRange) {
  ExpectFieldsAreGuarded<LevelParameters>(kLevelKind, kLevelFields);
  ExpectFieldsAreGuarded<MusicParameters>(kMusicKind, kMusicFields);
  ExpectFieldsAreGuarded<CinemaParameters>(kCinemaKind, kCinemaFields);
}

TEST(ConfigFile, FirstTokenNamesAFileBesideIt) {
  const TemporaryFolder directory;
  const char* const path = directory.path().c_str();
  const std::string longest(kMaxNameBytes, 'n'), too_long = longest + "n";
  std::string cut(4090, ' ');
  cut += "my.ba.more";  // beyond what is read
  using namespace std::string_view_literals;
  const struct {
    std::string_view text;
    Status status;
    std::string_view name;
  } kRows[] = {
      {"my.ba"sv, kOk, "my.ba"sv},           {" \r\n\tmy.ba\r\nother.ba\n"sv, kOk, "my.ba"sv},
      {"my.ba\v#"sv, kOk, "my.ba"sv},        {longest, kOk, longest},
      {too_long, kConfigBadName, {}},        {cut, kConfigBadName, {}},
      {"/etc/passwd"sv, kConfigBadName, {}}, {"a/b"sv, kConfigBadName, {}},
      {".."sv, kConfigBadName, {}},          {"a..b"sv, kConfigBadName, {}},
      {"my.ba\0"sv, kConfigBadName, {}},     {"my\x7F.ba"sv, kConfigBadName, {}},
      {"my\x1B.ba"sv, kConfigBadName, {}},   {""sv, kConfigNoName, {}},
      {" \n\t "sv, kConfigNoName, {}}};
  for (const auto& row : kRows) {
    directory.Write("config", row.text);
    std::string data_path = "untouched";
    EXPECT_EQ(ReadConfigFile(path, "config", data_path), row.status) << row.text;
    EXPECT_EQ(data_path, row.status == kOk ? directory / row.name : "untouched") << row.text;
  }
  std::string unused;
  directory.Write("config", std::string(kMaxConfigBytes, ' ') + "my.ba");
  EXPECT_EQ(ReadConfigFile(path, "config", unused), kConfigNoName);
  EXPECT_EQ(ReadConfigFile(path, ".", unused), kConfigNotRegular);
}

// ---- The contents of equalizer and HRIR files.

// The result of a create from `file`; checks that a failure leaves nothing.
template <typename Create, typename Destroy>
int32_t CreateFrom(const Bytes& file, Create create, Destroy destroy) {
  const TemporaryFolder directory;
  InstallIn(directory, file);
  uint32_t handle = 0xABCD;
  const int32_t status = create(&handle, directory.path().c_str(), "config");
  EXPECT_EQ(handle == 0xABCD, status != kOk);
  if (status == kOk) {
    EXPECT_EQ(destroy(&handle), kOk);
  }
  return status;
}
int32_t CreateEqualizer(const Bytes& file) { return CreateFrom(file, A0243, A0812); }
int32_t CreateVirtualizer(const Bytes& file) { return CreateFrom(file, A0782, A0810); }

// Cut short, but with a right checksum: only the counts show it.
void ExpectCutsAreRefused(const Bytes& good, const DataKind& kind,
                          int32_t (*create)(const Bytes&)) {
  for (std::size_t size = sizeof(DataHeader); size < good.size(); size += 4) {
    Bytes cut = Cut(good, size);
    Seal(cut, kind);
    ASSERT_EQ(create(cut), kBadCount) << size;
  }
}

uint32_t Bits(float number) { return std::bit_cast<uint32_t>(number); }

// `file` with one word replaced, sealed again.
Bytes With(Bytes file, std::size_t offset, uint32_t word, const DataKind& kind) {
  std::memcpy(&file.at(offset), &word, sizeof(word));
  Seal(file, kind);
  return file;
}

TEST(EqualizerFile, DamageIsRefusedByItsOwnStatus) {
  const Bytes good = BuildEqualizerFile(FiveBands(EqualizerForm::kBands));
  ASSERT_EQ(CreateEqualizer(good), kOk);
  ExpectCutsAreRefused(good, kEqualizerKind, CreateEqualizer);
  const std::size_t info = sizeof(DataHeader), band = info + sizeof(EqualizerInfo);
  const std::tuple<std::size_t, uint32_t, Status> kWords[] = {
      {info + offsetof(EqualizerInfo, form), 2, kBadType},
      {info + offsetof(EqualizerInfo, curves), 0, kBadCount},
      {info + offsetof(EqualizerInfo, curves), 2, kBadCount},
      {info + offsetof(EqualizerInfo, curves), 3, kBadCount},
      {info + offsetof(EqualizerInfo, count), 1, kBadCount},
      {info + offsetof(EqualizerInfo, count), 0xFFFFFFFF, kBadCount},
      {band + offsetof(EqualizerBand, type), kBandTypes, kBadType}};
  for (const auto& [offset, word, status] : kWords) {
    EXPECT_EQ(CreateEqualizer(With(good, offset, word, kEqualizerKind)), status) << offset;
  }
  const std::tuple<std::size_t, float, float> kNumbers[] = {
      {info + offsetof(EqualizerInfo, preamp_db), kPreampMinDb, kPreampMaxDb},
      {band + offsetof(EqualizerBand, freq_hz), kBandMinHz, kBandMaxHz},
      {band + offsetof(EqualizerBand, gain_db), kBandMinDb, kBandMaxDb},
      {band + offsetof(EqualizerBand, q), kBandMinQ, kBandMaxQ},
      {band + sizeof(EqualizerBand) + offsetof(EqualizerBand, q), kBandMinQ, kBandMaxQ}};
  for (const auto& [offset, min, max] : kNumbers) {
    for (const auto& [number, status] : Numbers(min, max)) {
      EXPECT_EQ(CreateEqualizer(With(good, offset, Bits(number), kEqualizerKind)), status)
          << offset << " = " << number;
    }
  }
}

TEST(EqualizerFile, CountsAndTapsAreBounded) {
  EqualizerTuning bands = FiveBands(EqualizerForm::kBands), fir;
  bands.curves[0].bands.resize(kMaxEqualizerBands, bands.curves[0].bands[0]);
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(bands)), kOk);
  bands.curves[0].bands.push_back(bands.curves[0].bands[0]);
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(bands)), kBadCount);

  fir.form = EqualizerForm::kFir;
  fir.curves.resize(2);
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(fir)), kBadCount) << "no taps";
  fir.curves[0].taps.assign(kMaxEqualizerTaps, kMaxEqualizerTap);
  fir.curves[1].taps = fir.curves[0].taps;
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(fir)), kOk);
  fir.curves[1].taps.back() = std::nextafter(-kMaxEqualizerTap, -1e9f);
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(fir)), kOutOfRange);
  fir.curves[1].taps.push_back(0);
  EXPECT_THROW(BuildEqualizerFile(fir), std::invalid_argument) << "longer than the first";
  fir.curves[1].taps.pop_back();
  for (auto& curve : fir.curves) {
    curve.taps.push_back(0);
  }
  EXPECT_EQ(CreateEqualizer(BuildEqualizerFile(fir)), kDataTooLong);
}

TEST(HrirFile, DamageIsRefusedByItsOwnStatus) {
  const Bytes good = EncodeHrirSet(NoiseHrirs(8, 1));
  const std::size_t info = sizeof(DataHeader), room = info + sizeof(HrirInfo),
                    directions = room + sizeof(RoomParameters),
                    taps = directions + kPlanes * sizeof(HrirPlane);
  ASSERT_EQ(good.size(), taps + kPlanes * kEars * 8 * sizeof(float));
  EXPECT_EQ(CreateVirtualizer(good), kOk);
  const std::tuple<std::size_t, uint32_t, Status> kWords[] = {
      {info, 44100, kBadSampleRate},
      {info + 4, 6, kBadCount},
      {info + 8, 0, kBadCount},
      {info + 8, 9, kBadCount},
      {info + 8, kMaxHrirTaps + 1, kBadCount},
      {info + 8, 0xFFFFFFFF, kBadCount},
      {info + 8, 0x40000008, kBadCount},
      {info + 12, 1, kBadReserved},
      {room, Bits(1.0f), kOutOfRange},
      {room + 8, Bits(kNan), kNotFinite},
      {room + 28, Bits(1.0f), kOutOfRange},
      {directions, Bits(-30.0f), kBadDirection},  // the right front's
      {directions + 12, Bits(15.0f), kBadDirection},
      {directions + 8, Bits(kNan), kNotFinite},
      {good.size() - 4, Bits(17.0f), kOutOfRange},
      {taps, Bits(kNan), kNotFinite}};
  for (const auto& [offset, word, status] : kWords) {
    EXPECT_EQ(CreateVirtualizer(With(good, offset, word, kHrirKind)), status)
        << offset << ' ' << word;
  }
  for (const auto& [text, bytes] : {std::pair{offsetof(HrirInfo, source), sizeof(HrirInfo::source)},
                                    {offsetof(HrirInfo, licence), sizeof(HrirInfo::licence)}}) {
    Bytes endless = good;
    std::fill_n(endless.begin() + static_cast<std::ptrdiff_t>(info + text), bytes, std::byte{'x'});
    Seal(endless, kHrirKind);
    EXPECT_EQ(CreateVirtualizer(endless), kBadText);
  }
  ExpectCutsAreRefused(good, kHrirKind, CreateVirtualizer);
}

}  // namespace
}  // namespace kelda::upmix_lib
