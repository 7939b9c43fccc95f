#ifndef KELDA_EFFECT_DEVICE_TYPES_H_
#define KELDA_EFFECT_DEVICE_TYPES_H_

#include <system/audio.h>

#include "settings/upmix_types.h"

namespace kelda {

// The kind of output that a device word names; Other for a word that is not a
// single headphone, several devices at once included.
AudioDeviceType DeviceTypeOf(audio_devices_t device);

}  // namespace kelda

#endif  // KELDA_EFFECT_DEVICE_TYPES_H_
