// The platform's audio types as some trees have them: enumerations of their own where
// platform/include has numbers, and a function that a name of this project hides.
#ifndef KELDA_TESTS_PACKAGING_ENUMERATIONS_SYSTEM_AUDIO_H_
#define KELDA_TESTS_PACKAGING_ENUMERATIONS_SYSTEM_AUDIO_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct audio_uuid_s {
  uint32_t timeLow;
  uint16_t timeMid;
  uint16_t timeHiAndVersion;
  uint16_t clockSeq;
  uint8_t node[6];
} audio_uuid_t;

typedef enum {
  AUDIO_FORMAT_PCM_16_BIT = 0x1u,
  AUDIO_FORMAT_PCM_FLOAT = 0x5u,
} audio_format_t;

typedef enum {
  AUDIO_CHANNEL_NONE = 0x0u,
  AUDIO_CHANNEL_OUT_MONO = 0x1u,
  AUDIO_CHANNEL_OUT_STEREO = 0x3u,
  AUDIO_CHANNEL_INDEX_MASK_2 = 0x80000003u,
} audio_channel_mask_t;

typedef enum {
  AUDIO_DEVICE_NONE = 0x0u,
  AUDIO_DEVICE_OUT_EARPIECE = 0x1u,
  AUDIO_DEVICE_OUT_SPEAKER = 0x2u,
  AUDIO_DEVICE_OUT_WIRED_HEADSET = 0x4u,
  AUDIO_DEVICE_OUT_WIRED_HEADPHONE = 0x8u,
  AUDIO_DEVICE_OUT_BLUETOOTH_SCO = 0x10u,
  AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET = 0x20u,
  AUDIO_DEVICE_OUT_BLUETOOTH_A2DP = 0x80u,
  AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES = 0x100u,
  AUDIO_DEVICE_OUT_ANLG_DOCK_HEADSET = 0x800u,
  AUDIO_DEVICE_OUT_DGTL_DOCK_HEADSET = 0x1000u,
  AUDIO_DEVICE_OUT_USB_ACCESSORY = 0x2000u,
  AUDIO_DEVICE_OUT_USB_DEVICE = 0x4000u,
  AUDIO_DEVICE_OUT_LINE = 0x20000u,
  AUDIO_DEVICE_OUT_USB_HEADSET = 0x4000000u,
  AUDIO_DEVICE_OUT_BLE_HEADSET = 0x20000000u,
  AUDIO_DEVICE_OUT_BLE_BROADCAST = 0x20000002u,
  AUDIO_DEVICE_IN_BUILTIN_MIC = 0x80000004u,
} audio_devices_t;

static inline const char* audio_channel_out_mask_to_string(audio_channel_mask_t mask) {
  return mask == AUDIO_CHANNEL_OUT_STEREO ? "AUDIO_CHANNEL_OUT_STEREO" : "";
}

#ifdef __cplusplus
}
#endif

#endif  // KELDA_TESTS_PACKAGING_ENUMERATIONS_SYSTEM_AUDIO_H_
