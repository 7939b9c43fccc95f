#include "upmix-lib/equalizer/equalizer_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <stdexcept>

#include "upmix-lib/files/data_file.h"

namespace kelda::upmix_lib {
namespace {

struct Bounded {
  float value, min, max;
};

Status CheckBounds(std::initializer_list<Bounded> numbers) {
  for (const Bounded& number : numbers) {
    if (!std::isfinite(number.value)) {
      return kNotFinite;
    }
    if (number.value < number.min || number.value > number.max) {
      return kOutOfRange;
    }
  }
  return kOk;
}

Status Check(const EqualizerBand& band) {
  if (static_cast<uint32_t>(band.type) >= kBandTypes) {
    return kBadType;
  }
  return CheckBounds({{band.freq_hz, kBandMinHz, kBandMaxHz},
                      {band.gain_db, kBandMinDb, kBandMaxDb},
                      {band.q, kBandMinQ, kBandMaxQ}});
}

Status Check(float tap) { return CheckBounds({{tap, -kMaxEqualizerTap, kMaxEqualizerTap}}); }

// Moves `count` items from the front of `bytes`, which holds them, to `items`.
template <typename Item>
Status TakeItems(std::span<const std::byte>& bytes, std::size_t count, std::vector<Item>& items) {
  items.resize(count);
  if (count > 0) {
    std::memcpy(items.data(), bytes.data(), count * sizeof(Item));
  }
  bytes = bytes.subspan(count * sizeof(Item));
  for (const Item& item : items) {
    if (const Status status = Check(item); status != kOk) {
      return status;
    }
  }
  return kOk;
}

Status CheckInfo(const EqualizerInfo& info, std::size_t behind_bytes) {
  if (info.form != EqualizerForm::kBands && info.form != EqualizerForm::kFir) {
    return kBadType;
  }
  const bool bands = info.form == EqualizerForm::kBands;
  const uint32_t min = bands ? 0 : 1;
  const uint32_t max = bands ? kMaxEqualizerBands : kMaxEqualizerTaps;
  const std::size_t item_bytes = bands ? sizeof(EqualizerBand) : sizeof(float);
  if (info.curves < 1 || info.curves > 2 || info.count < min || info.count > max ||
      behind_bytes != info.curves * info.count * item_bytes) {
    return kBadCount;
  }
  return CheckBounds({{info.preamp_db, kPreampMinDb, kPreampMaxDb}});
}

// Copies `count` items to the front of `bytes`, which has room, and moves past them.
template <typename Item>
void PutItems(const Item* items, std::size_t count, std::span<std::byte>& bytes) {
  const std::size_t item_bytes = count * sizeof(Item);
  std::copy_n(reinterpret_cast<const std::byte*>(items), item_bytes, bytes.begin());
  bytes = bytes.subspan(item_bytes);
}

}  // namespace

Status ParseEqualizer(std::span<const std::byte> file, EqualizerTuning& tuning) {
  EqualizerInfo info;
  if (static_cast<std::size_t>(file.size()) < sizeof(DataHeader) + sizeof(info)) {
    return kBadCount;
  }
  std::memcpy(&info, file.data() + sizeof(DataHeader), sizeof(info));
  std::span<const std::byte> rest = file.subspan(sizeof(DataHeader) + sizeof(info));
  if (const Status status = CheckInfo(info, rest.size()); status != kOk) {
    return status;
  }
  EqualizerTuning parsed;
  parsed.form = info.form;
  parsed.preamp_db = info.preamp_db;
  parsed.curves.resize(info.curves);
  for (EqualizerTuning::Curve& curve : parsed.curves) {
    const Status status = info.form == EqualizerForm::kBands
                              ? TakeItems(rest, info.count, curve.bands)
                              : TakeItems(rest, info.count, curve.taps);
    if (status != kOk) {
      return status;
    }
  }
  tuning = std::move(parsed);
  return kOk;
}

std::vector<std::byte> BuildEqualizerFile(const EqualizerTuning& tuning) {
  const bool bands = tuning.form == EqualizerForm::kBands;
  const EqualizerTuning::Curve& first = tuning.curves.front();
  const EqualizerInfo info = {tuning.form, static_cast<uint32_t>(tuning.curves.size()),
                              static_cast<uint32_t>(bands ? first.bands.size() : first.taps.size()),
                              tuning.preamp_db};
  for (const EqualizerTuning::Curve& curve : tuning.curves) {
    if (info.count != (bands ? curve.bands.size() : curve.taps.size())) {
      throw std::invalid_argument("the equalizer's curves are not of equal length");
    }
  }
  const std::size_t item_bytes = bands ? sizeof(EqualizerBand) : sizeof(float);
  std::vector<std::byte> file(sizeof(DataHeader) + sizeof(info) +
                              info.curves * info.count * item_bytes);
  std::span<std::byte> rest = std::span(file).subspan(sizeof(DataHeader));
  PutItems(&info, 1, rest);
  for (const EqualizerTuning::Curve& curve : tuning.curves) {
    if (bands) {
      PutItems(curve.bands.data(), curve.bands.size(), rest);
    } else {
      PutItems(curve.taps.data(), curve.taps.size(), rest);
    }
  }
  Seal(file, kEqualizerKind);
  return file;
}

}  // namespace kelda::upmix_lib
