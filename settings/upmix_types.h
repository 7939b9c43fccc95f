// The values that the effect's settings take, as they cross the parameter
// interface.
#ifndef KELDA_SETTINGS_UPMIX_TYPES_H_
#define KELDA_SETTINGS_UPMIX_TYPES_H_

#include <cstdint>

namespace kelda {

enum class UpmixMode : uint32_t {
  Off = 0,  // pass-through
  Music = 1,
  Cinema = 2,
  Auto = 3,  // follows the playing application
};

enum class AudioDeviceType : uint32_t {
  Other = 0,  // a speaker or anything else that is not a headphone: no upmix
  Wired = 1,
  Bluetooth = 2,
};

enum class HrtfType : uint32_t {
  Speaker = 0,
  Standard = 1,  // also every fallback
  Personalized = 2,
};

}  // namespace kelda

#endif  // KELDA_SETTINGS_UPMIX_TYPES_H_
