// HRIR sets, *.hki, as they lie on disk:
//
//   DataHeader | HrirInfo | RoomParameters | HrirPlane x 7
//              | plane 0: left taps, right taps | plane 1: left taps, right taps | ...
//
// The interaural delay is part of the taps. Azimuth counts counter-clockwise from
// straight ahead (+90 is the left ear's side), elevation upwards.
#ifndef KELDA_UPMIX_LIB_BINAURAL_HRIR_FORMAT_H_
#define KELDA_UPMIX_LIB_BINAURAL_HRIR_FORMAT_H_

#include <cstdint>

#include "upmix-lib/base/audio_format.h"
#include "upmix-lib/binaural/room_parameters.h"
#include "upmix-lib/files/data_header.h"

namespace kelda::upmix_lib {

inline constexpr uint32_t kMaxHrirTaps = 8192;  // room responses fit
inline constexpr float kMaxHrirTap = 16.0f;     // magnitude

struct HrirInfo {
  uint32_t sample_rate_hz;  // kSampleRateHz
  uint32_t plane_count;     // kPlanes
  uint32_t tap_count;       // per ear, 1..kMaxHrirTaps
  uint32_t reserved;        // 0
  char source[128];         // who measured what, zero-terminated UTF-8
  char licence[64];         // of the measurement, zero-terminated UTF-8
};
static_assert(sizeof(HrirInfo) == 208);

// The direction that a plane's HRIRs were made for.
struct HrirPlane {
  float azimuth_deg;
  float elevation_deg;
};
static_assert(sizeof(HrirPlane) == 8);

inline constexpr DataKind kHrirKind = {
    {'K', 'H', 'K', 'I'},
    1,
    sizeof(DataHeader) + sizeof(HrirInfo) + sizeof(RoomParameters) +
        kPlanes*(sizeof(HrirPlane) + 2 * kMaxHrirTaps * sizeof(float))};

// The planes' directions. A file must hold exactly these, in this order: a set for other
// loudspeakers, or with its planes exchanged, is refused.
inline constexpr HrirPlane kPlaneDirections[kPlanes] = {{30, 0},  {-30, 0}, {0, 0},   {90, 0},
                                                        {-90, 0}, {135, 0}, {-135, 0}};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BINAURAL_HRIR_FORMAT_H_
