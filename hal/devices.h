// Outputs as the AIDL interface describes them, and what they mean to the effect.
#ifndef KELDA_HAL_DEVICES_H_
#define KELDA_HAL_DEVICES_H_

#include <cstdint>
#include <span>
#include <string>

namespace kelda::hal {

// android.media.audio.common.AudioDeviceType, with its values. Those that are not named here are
// kept like the others.
enum class DeviceType : int32_t {
  None = 0,
  InDefault = 1,
  InDevice = 4,
  OutDefault = 129,  // values from here on are outputs
  OutAccessory = 130,
  OutCarkit = 132,
  OutDevice = 133,
  OutHeadphone = 136,
  OutHeadset = 137,
  OutSpeaker = 140,
  OutSpeakerEarpiece = 141,
  OutDock = 145,
  OutBroadcast = 146,
};

// android.media.audio.common.AudioDeviceDescription.
struct DeviceDescription {
  DeviceType type = DeviceType::None;
  std::string connection{};  // such as "analog", "bt-a2dp"; empty for what is built in

  bool operator==(const DeviceDescription&) const = default;
};

// Whether the list names inputs only, and so says nothing of where the sound goes. An empty list
// says that there is no output. Any thread.
bool OnlyInputs(std::span<const DeviceDescription> devices);

// The device word (AUDIO_DEVICE_OUT_...) of the outputs that play together; inputs are skipped.
// changeover::kNoDevice, which is no headphone, for none, for several that differ, and for one
// that the effect does not know. Throws std::bad_alloc. Any thread.
uint32_t DeviceWord(std::span<const DeviceDescription> devices);

}  // namespace kelda::hal

#endif  // KELDA_HAL_DEVICES_H_
