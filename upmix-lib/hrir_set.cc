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

  const auto contents = std::span<const std::byte>(file).subspan(sizeof(DataHeader));
  Preamble preamble;
  if (contents.size() < sizeof(preamble)) return kBadCount;
  std::memcpy(&preamble, contents.data(), sizeof(preamble));
  const auto taps = contents.subspan(sizeof(preamble));

  if (const Status status = CheckInfo(preamble.info, taps.size()); status != kOk) return status;
  const auto room_bytes = std::as_bytes(std::span(&preamble.room, 1));
  if (const Status status = CheckFields(room_bytes, kRoomFields); status != kOk) return status;
  for (const HrirPlane& plane : preamble.planes) {
    if (const Status status = CheckDirection(plane); status != kOk) return status;
  }
  std::vector<float> responses(taps.size() / sizeof(float));
  std::memcpy(responses.data(), taps.data(), taps.size());
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

  const auto taps = std::as_bytes(std::span(set.responses));
  std::vector<std::byte> file(sizeof(DataHeader) + sizeof(preamble) + taps.size());
  std::memcpy(file.data() + sizeof(DataHeader), &preamble, sizeof(preamble));
  std::memcpy(file.data() + sizeof(DataHeader) + sizeof(preamble), taps.data(), taps.size());
  Seal(file, kHrirKind);
  return file;
}

}  // namespace kelda::upmix_lib
