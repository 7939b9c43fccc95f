// Equalizer files, *.ba, as they lie on disk:
//
//   DataHeader | EqualizerInfo | EqualizerBand x count x curves   (form: bands)
//   DataHeader | EqualizerInfo | float x count x curves           (form: FIR)
//
// With two curves the left channel's come first, then the right's.
#ifndef KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FORMAT_H_
#define KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FORMAT_H_

#include <cstdint>

#include "upmix-lib/files/data_header.h"
#include "upmix-lib/filters/biquad_design.h"

namespace kelda::upmix_lib {

inline constexpr uint32_t kMaxEqualizerBands = 64;
inline constexpr uint32_t kMaxEqualizerTaps = 8192;
inline constexpr float kMaxEqualizerTap = 16.0f;  // magnitude

enum class EqualizerForm : uint32_t { kBands = 0, kFir = 1 };

struct EqualizerInfo {
  EqualizerForm form;
  uint32_t curves;  // 1: both channels share one; 2: one each
  uint32_t count;   // per curve: 0..kMaxEqualizerBands bands or 1..kMaxEqualizerTaps taps
  float preamp_db;  // kPreampMinDb..kPreampMaxDb
};
static_assert(sizeof(EqualizerInfo) == 16);

inline constexpr float kPreampMinDb = -60.0f;
inline constexpr float kPreampMaxDb = 24.0f;
inline constexpr float kBandMinHz = 10.0f;
inline constexpr float kBandMaxHz = 23000.0f;
inline constexpr float kBandMinDb = -40.0f;
inline constexpr float kBandMaxDb = 40.0f;
inline constexpr float kBandMinQ = 0.01f;
inline constexpr float kBandMaxQ = 100.0f;

inline constexpr DataKind kEqualizerKind = {
    {'K', 'H', 'E', 'Q'},
    1,
    sizeof(DataHeader) + sizeof(EqualizerInfo) + 2 * kMaxEqualizerTaps * sizeof(float)};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_EQUALIZER_EQUALIZER_FORMAT_H_
