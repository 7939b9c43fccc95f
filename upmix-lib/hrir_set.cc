#include "upmix-lib/hrir_set.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "upmix-lib/data_file.h"

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
constexpr std::size_t kTapsOffset_bytes = sizeof(DataHeader) + sizeof(Preamble);

template <std::size_t kSize>
bool IsTerminated(const char (&text)[kSize]) {
  return std::find(text, text + kSize, '\0') != text + kSize;
}

Status CheckInfo(const HrirInfo& info, std::size_t tap_bytes) {
  if (info.sample_rate_hz != kSampleRateHz) return kBadSampleRate;
  if (info.plane_count != kPlanes) return kBadCount;
  if (info.tap_count < 1 || info.tap_count > kMaxHrirTaps) return kBadCount;
  if (tap_bytes != kPlanes * kEars * info.tap_count * sizeof(float)) return kBadCount;
  if (info.reserved != 0) return kBadReserved;
  if (!IsTerminated(info.source) || !IsTerminated(info.licence)) return kBadText;
  return kOk;
}

Status CheckMagnitude(float value, float limit) {
  if (!std::isfinite(value)) return kNotFinite;
  return std::fabs(value) <= limit ? kOk : kOutOfRange;
}

Status CheckDirection(const HrirPlane& plane) {
  const Status azimuth = CheckMagnitude(plane.azimuth_deg, 180.0f);
  return azimuth != kOk ? azimuth : CheckMagnitude(plane.elevation_deg, 90.0f);
}

}  // namespace

Status LoadHrirSet(const std::string& path, HrirSet& set) {
  std::vector<std::byte> file;
  if (const Status status = ReadDataFile(path, kHrirKind, file); status != kOk) return status;

  if (file.size() < kTapsOffset_bytes) return kBadCount;
  Preamble preamble;
  std::memcpy(&preamble, file.data() + sizeof(DataHeader), sizeof(preamble));
  const std::size_t tap_bytes = file.size() - kTapsOffset_bytes;

  if (const Status status = CheckInfo(preamble.info, tap_bytes); status != kOk) return status;
  if (const Status status = CheckFields(BytesOf(preamble.room), kRoomFields); status != kOk) {
    return status;
  }
  for (const HrirPlane& plane : preamble.planes) {
    if (const Status status = CheckDirection(plane); status != kOk) return status;
  }
  std::vector<float> responses(tap_bytes / sizeof(float));
  std::memcpy(responses.data(), file.data() + kTapsOffset_bytes, tap_bytes);
  for (const float tap : responses) {
    if (const Status status = CheckMagnitude(tap, kMaxHrirTap); status != kOk) return status;
  }

  HrirSet loaded;
  loaded.source = preamble.info.source;
  loaded.licence = preamble.info.licence;
  loaded.room = preamble.room;
  std::copy_n(preamble.planes, kPlanes, loaded.directions.begin());
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
  std::copy_n(set.directions.begin(), kPlanes, preamble.planes);

  const std::size_t tap_bytes = set.responses.size() * sizeof(float);
  std::vector<std::byte> file(kTapsOffset_bytes + tap_bytes);
  std::memcpy(file.data() + sizeof(DataHeader), &preamble, sizeof(preamble));
  std::memcpy(file.data() + kTapsOffset_bytes, set.responses.data(), tap_bytes);
  Seal(file, kHrirKind);
  return file;
}

}  // namespace kelda::upmix_lib
