#include "effect/device_types.h"

#include <cstdint>

namespace kelda {
namespace {

struct DeviceType {
  uint32_t device;
  AudioDeviceType type;
};

// The earpiece counts as a wired headphone on purpose.
constexpr DeviceType kDeviceTypeTable[] = {
    {AUDIO_DEVICE_OUT_EARPIECE, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_WIRED_HEADSET, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_WIRED_HEADPHONE, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_ANLG_DOCK_HEADSET, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_DGTL_DOCK_HEADSET, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_USB_HEADSET, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_USB_ACCESSORY, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_USB_DEVICE, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_LINE, AudioDeviceType::Wired},
    {AUDIO_DEVICE_OUT_BLUETOOTH_SCO, AudioDeviceType::Bluetooth},
    {AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET, AudioDeviceType::Bluetooth},
    {AUDIO_DEVICE_OUT_BLUETOOTH_A2DP, AudioDeviceType::Bluetooth},
    {AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES, AudioDeviceType::Bluetooth},
    {AUDIO_DEVICE_OUT_BLE_HEADSET, AudioDeviceType::Bluetooth},
    {AUDIO_DEVICE_OUT_BLE_BROADCAST, AudioDeviceType::Bluetooth},
};

}  // namespace

AudioDeviceType DeviceTypeOf(audio_devices_t device) {
  for (const DeviceType& entry : kDeviceTypeTable) {
    if (entry.device == static_cast<uint32_t>(device)) {
      return entry.type;
    }
  }
  return AudioDeviceType::Other;
}

}  // namespace kelda
