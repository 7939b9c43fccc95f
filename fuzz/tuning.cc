#include "fuzz/tuning.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <vector>

#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"
#include "upmix-lib/upmix/cinema_parameters.h"
#include "upmix-lib/upmix/music_parameters.h"

namespace kelda::fuzz {
namespace {

using namespace upmix_lib;
using Bytes = std::vector<std::byte>;

// A value from `min` to `max`, both included.
float Draw(float min, float max, ByteReader* input) {
  return std::lerp(min, max, static_cast<float>(input->Take<uint8_t>()) / 255.0f);
}

void DrawFields(std::span<const ParameterField> fields, std::span<std::byte> parameters,
                ByteReader* input) {
  SetDefaults(parameters, fields);
  for (std::size_t count = input->Below(8); count > 0; --count) {
    const ParameterField& field = fields[input->Below(fields.size())];
    const float value = Draw(field.min, field.max, input);
    std::memcpy(parameters.data() + field.offset_bytes, &value, sizeof(value));
  }
}

// A file that is one struct, so its length is always the longest of its kind.
template <const DataKind& kKind, const auto& kFields>
Bytes DrawParameters(ByteReader* input) {
  Bytes file(kKind.max_bytes);
  DrawFields(kFields, file, input);
  Seal(file, kKind);
  return file;
}

Bytes DrawHrirs(ByteReader* input) {
  constexpr int kTaps[] = {8, 1, 7, 64, 200, 256, 1025};
  HrirSet set;
  set.taps = input->OneOf(kTaps);
  DrawFields(kRoomFields, std::as_writable_bytes(std::span(&set.room, 1)), input);
  const float tap = Draw(0.1f, kMaxHrirTap, input);
  const auto unlike = input->Take<uint8_t>();  // bit p: plane p has its own taps
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const bool own = (unlike >> plane & 1) != 0;
    set.responses.insert(set.responses.end(), kEars * static_cast<std::size_t>(set.taps),
                         own ? Draw(0.0f, kMaxHrirTap, input) : tap);
  }
  return EncodeHrirSet(set);
}

Bytes DrawEqualizer(ByteReader* input) {
  EqualizerTuning tuning;
  tuning.form = EqualizerForm{input->Below(2)};
  tuning.preamp_db = Draw(kPreampMaxDb, kPreampMinDb, input);
  const std::size_t bands = (5 + input->Below(kMaxEqualizerBands + 1)) % (kMaxEqualizerBands + 1);
  const std::size_t taps = 1 + 32 * input->Take<uint8_t>();
  tuning.curves.resize(1 + input->Below(2));
  for (EqualizerTuning::Curve& curve : tuning.curves) {
    for (std::size_t i = 0; i < bands; ++i) {
      const auto type = static_cast<BandType>(input->Below(kBandTypes));
      curve.bands.push_back({type, Draw(kBandMinHz, kBandMaxHz, input),
                             Draw(kBandMinDb, kBandMaxDb, input),
                             Draw(kBandMinQ, kBandMaxQ, input)});
    }
    curve.taps.resize(taps, Draw(0.1f, kMaxEqualizerTap, input));
  }
  return BuildEqualizerFile(tuning);
}

// One of the texts, the first by default.
template <std::size_t kFirst>
Bytes DrawText(ByteReader* input) {
  constexpr std::string_view kTexts[] = {"a.b,MUSIC\nc.d , CINEMA\r\ne.f,OFF\n,,\n",
                                         "standard.hki\n",
                                         "personalized.ba\n",
                                         "personalized.hki",
                                         " speaker.hki\n",
                                         "../standard.hki\n"};
  const auto bytes = std::as_bytes(
      std::span(kTexts[(kFirst + input->Below(std::size(kTexts))) % std::size(kTexts)]));
  return {bytes.begin(), bytes.end()};
}

struct File {
  std::string_view name;
  const DataKind* kind;              // null: text
  Bytes (*draw)(ByteReader* input);  // valid contents; without input the same each time
};

constexpr File kFiles[] = {
    {"tunedapp_list", nullptr, DrawText<0>},
    {"wired.hki.config", nullptr, DrawText<1>},
    {"bluetooth.hki.config", nullptr, DrawText<1>},
    {"wired.ba.config", nullptr, DrawText<2>},
    {"bluetooth.ba.config", nullptr, DrawText<2>},
    {"standard.hki", &kHrirKind, DrawHrirs},
    {"personalized.hki", &kHrirKind, DrawHrirs},
    {"personalized.ba", &kEqualizerKind, DrawEqualizer},
    {"upmix.music.hps.bin", &kMusicKind, DrawParameters<kMusicKind, kMusicFields>},
    {"upmix.music.hpp.bin", &kMusicKind, DrawParameters<kMusicKind, kMusicFields>},
    {"upmix.cinema.hps.bin", &kCinemaKind, DrawParameters<kCinemaKind, kCinemaFields>},
    {"upmix.cinema.hpp.bin", &kCinemaKind, DrawParameters<kCinemaKind, kCinemaFields>},
    {"upl.music.bin", &kLevelKind, DrawParameters<kLevelKind, kLevelFields>},
    {"upl.cinema.bin", &kLevelKind, DrawParameters<kLevelKind, kLevelFields>},
};

}  // namespace

void WriteTuning(const TemporaryFolder& directory) {
  std::filesystem::remove_all(directory.path());
  std::filesystem::create_directory(directory.path());
  for (const File& file : kFiles) {
    ByteReader none(nullptr, 0);
    directory.Write(file.name, file.draw(&none));
  }
}

std::string_view RewriteTuning(const TemporaryFolder& directory, ByteReader* input) {
  enum { kDraw, kDamage, kDamageAndSeal, kCut, kLengthen, kRemove, kDirectory, kWays };
  const File& file = kFiles[input->Below(std::size(kFiles))];
  const auto way = input->Below(kWays);
  std::filesystem::remove(directory / file.name);
  if (way == kDirectory) {
    std::filesystem::create_directory(directory / file.name);
  }
  if (way == kDirectory || way == kRemove) {
    return file.name;
  }
  Bytes bytes = file.draw(input);
  const std::size_t at = input->Take<uint16_t>() % bytes.size();
  if (way == kCut) {
    bytes.resize(at);
  }
  if (way == kLengthen) {
    bytes.resize(bytes.size() + at);
  }
  if (way == kDamage || way == kDamageAndSeal) {
    const auto values =
        input->TakeBytes(std::min<std::size_t>(1 + input->Below(8), bytes.size() - at));
    std::memcpy(&bytes[at], values.data(), values.size());
  }
  if (way == kDamageAndSeal && file.kind != nullptr) {
    Seal(bytes, *file.kind);
  }
  directory.Write(file.name, bytes);
  return file.name;
}

}  // namespace kelda::fuzz
