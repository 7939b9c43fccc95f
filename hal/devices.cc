#include "hal/devices.h"

#include <system/audio.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "changeover/sound.h"

namespace kelda::hal {
namespace {

struct Output {
  DeviceType type;
  std::string_view connection;
  uint32_t word;
};

// The outputs that the effect tells from each other, as the framework converts between the two
// (AidlConversionCppNdk.cpp in frameworks/av/media/audioaidlconversion).
constexpr Output kOutputs[] = {
    {DeviceType::OutSpeakerEarpiece, "", AUDIO_DEVICE_OUT_EARPIECE},
    {DeviceType::OutSpeaker, "", AUDIO_DEVICE_OUT_SPEAKER},
    {DeviceType::OutHeadset, "analog", AUDIO_DEVICE_OUT_WIRED_HEADSET},
    {DeviceType::OutHeadphone, "analog", AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
    {DeviceType::OutDevice, "analog", AUDIO_DEVICE_OUT_LINE},
    {DeviceType::OutDock, "analog", AUDIO_DEVICE_OUT_ANLG_DOCK_HEADSET},
    {DeviceType::OutDock, "usb", AUDIO_DEVICE_OUT_DGTL_DOCK_HEADSET},
    {DeviceType::OutAccessory, "usb", AUDIO_DEVICE_OUT_USB_ACCESSORY},
    {DeviceType::OutDevice, "usb", AUDIO_DEVICE_OUT_USB_DEVICE},
    {DeviceType::OutHeadset, "usb", AUDIO_DEVICE_OUT_USB_HEADSET},
    {DeviceType::OutDevice, "bt-sco", AUDIO_DEVICE_OUT_BLUETOOTH_SCO},
    {DeviceType::OutHeadset, "bt-sco", AUDIO_DEVICE_OUT_BLUETOOTH_SCO_HEADSET},
    {DeviceType::OutCarkit, "bt-sco", AUDIO_DEVICE_OUT_BLUETOOTH_SCO_CARKIT},
    {DeviceType::OutDevice, "bt-a2dp", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP},
    {DeviceType::OutHeadphone, "bt-a2dp", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES},
    {DeviceType::OutSpeaker, "bt-a2dp", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_SPEAKER},
    {DeviceType::OutHeadset, "bt-le", AUDIO_DEVICE_OUT_BLE_HEADSET},
    {DeviceType::OutSpeaker, "bt-le", AUDIO_DEVICE_OUT_BLE_SPEAKER},
    {DeviceType::OutBroadcast, "bt-le", AUDIO_DEVICE_OUT_BLE_BROADCAST},
};

bool IsOutput(const DeviceDescription& device) { return device.type >= DeviceType::OutDefault; }

uint32_t WordOf(const DeviceDescription& device) {
  const Output* const output =
      std::find_if(std::begin(kOutputs), std::end(kOutputs), [&](const Output& known) {
        return known.type == device.type && known.connection == device.connection;
      });
  return output != std::end(kOutputs) ? output->word : changeover::kNoDevice;
}

}  // namespace

bool OnlyInputs(std::span<const DeviceDescription> devices) {
  return !devices.empty() && std::none_of(devices.begin(), devices.end(), IsOutput);
}

uint32_t DeviceWord(std::span<const DeviceDescription> devices) {
  std::vector<uint32_t> words;
  for (const DeviceDescription& device : devices) {
    if (IsOutput(device)) {
      words.push_back(WordOf(device));
    }
  }
  return changeover::DeviceWord(words);
}

}  // namespace kelda::hal
