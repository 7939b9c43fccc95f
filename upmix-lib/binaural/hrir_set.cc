#include "upmix-lib/binaural/hrir_set.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "upmix-lib/files/data_file.h"

namespace kelda::upmix_lib {
namespace {

// What stands between the container's header and the taps.
struct Preamble {
  HrirInfo info;
  RoomParameters room;
  HrirPlane planes[kPlanes];
};
static_assert(sizeof(Preamble) ==
              sizeof(HrirInfo) + sizeof(RoomParameters) + kPlanes * sizeof(HrirPlane));
constexpr std::size_t kTapsOffsetBytes = sizeof(DataHeader) + sizeof(Preamble);

template <std::size_t kSize>
bool IsTerminated(const char (&text)[kSize]) {
  return std::find(text, text + kSize, '\0') != text + kSize;
}

Status CheckInfo(const HrirInfo& info, std::size_t tap_bytes) {
  if (info.sample_rate_hz != kSampleRateHz) {
    return kBadSampleRate;
  }
  if (info.plane_count != kPlanes) {
    return kBadCount;
  }
  if (info.tap_count < 1 || info.tap_count > kMaxHrirTaps) {
    return kBadCount;
  }
  if (tap_bytes != kPlanes * kEars * info.tap_count * sizeof(float)) {
    return kBadCount;
  }
  if (info.reserved != 0) {
    return kBadReserved;
  }
  if (!IsTerminated(info.source) || !IsTerminated(info.licence)) {
    return kBadText;
  }
  return kOk;
}

Status CheckMagnitude(float value, float limit) {
  if (!std::isfinite(value)) {
    return kNotFinite;
  }
  return std::fabs(value) <= limit ? kOk : kOutOfRange;
}

// HRIRs for any other direction would be heard from their plane's all the same.
Status CheckDirection(const HrirPlane& made_for, const HrirPlane& plane) {
  if (!std::isfinite(made_for.azimuth_deg) || !std::isfinite(made_for.elevation_deg)) {
    return kNotFinite;
  }
  return made_for.azimuth_deg == plane.azimuth_deg && made_for.elevation_deg == plane.elevation_deg
             ? kOk
             : kBadDirection;
}

}  // namespace

Status LoadHrirSet(const std::string& path, HrirSet& set) {
  std::vector<std::byte> file;
  const Status status = ReadDataFile(path, kHrirKind, file);
  return status != kOk ? status : ParseHrirSet(file, set);
}

Status ParseHrirSet(std::span<const std::byte> file, HrirSet& set) {
  if (file.size() < kTapsOffsetBytes) {
    return kBadCount;
  }
  Preamble preamble;
  std::memcpy(&preamble, file.data() + sizeof(DataHeader), sizeof(preamble));
  const std::size_t tap_bytes = file.size() - kTapsOffsetBytes;

  if (const Status status = CheckInfo(preamble.info, tap_bytes); status != kOk) {
    return status;
  }
  if (const Status status = CheckFields(BytesOf(preamble.room), kRoomFields); status != kOk) {
    return status;
  }
  for (std::size_t plane = 0; plane < kPlanes; ++plane) {
    const Status status = CheckDirection(preamble.planes[plane], kPlaneDirections[plane]);
    if (status != kOk) {
      return status;
    }
  }
  std::vector<float> responses(tap_bytes / sizeof(float));
  std::memcpy(responses.data(), file.data() + kTapsOffsetBytes, tap_bytes);
  for (const float tap : responses) {
    if (const Status status = CheckMagnitude(tap, kMaxHrirTap); status != kOk) {
      return status;
    }
  }

  HrirSet loaded;
  loaded.source = preamble.info.source;
  loaded.licence = preamble.info.licence;
  loaded.room = preamble.room;
  loaded.taps = static_cast<int>(preamble.info.tap_count);
  loaded.responses = std::move(responses);
  set = std::move(loaded);
  return kOk;
}

std::vector<std::byte> EncodeHrirSet(const HrirSet& set) {
  Preamble preamble{};
  preamble.info.sample_rate_hz = kSampleRateHz;
  preamble.info.plane_count = kPlanes;
  preamble.info.tap_count = static_cast<uint32_t>(set.taps);
  set.source.copy(preamble.info.source, sizeof(preamble.info.source) - 1);
  set.licence.copy(preamble.info.licence, sizeof(preamble.info.licence) - 1);
  preamble.room = set.room;
  std::copy_n(kPlaneDirections, kPlanes, preamble.planes);

  const std::size_t tap_bytes = set.responses.size() * sizeof(float);
  std::vector<std::byte> file(kTapsOffsetBytes + tap_bytes);
  std::memcpy(file.data() + sizeof(DataHeader), &preamble, sizeof(preamble));
  std::memcpy(file.data() + kTapsOffsetBytes, set.responses.data(), tap_bytes);
  Seal(file, kHrirKind);
  return file;
}

}  // namespace kelda::upmix_lib
