// What a device's own texts say about how the effect gets into it.
#ifndef KELDA_TOOLS_DEVICE_DEVICE_REPORT_H_
#define KELDA_TOOLS_DEVICE_DEVICE_REPORT_H_

#include <optional>
#include <string>
#include <string_view>

namespace kelda::tools {

// The interface by which a device's audio service loads effects.
enum class EffectDoor {
  kRecord,   // HIDL, which loads libraries with AELI: libkelupmix.so
  kAidl,     // AIDL: libkelupmix-aidl.so
  kNone,     // neither as the device is now
  kUnknown,  // the text does not tell
};

enum class SpatialAudio { kOn, kOff, kAbsent, kUnknown };

// Read from the output of `getprop` and of `dumpsys` for any services, in any order.
struct DeviceReport {
  std::string release;   // Android's version as the device names it, "15"
  int sdk = 0;           // API level of the system image
  int vendor_level = 0;  // of the vendor image: up to 34 an API level, then 202404 and so on
  EffectDoor door = EffectDoor::kUnknown;
  std::string door_reason;
  // Of the AIDL interface, by what the compatibility matrix of the vendor image allows.
  int most_interface_version = 0;
  std::optional<std::string> effect_property;  // vendor.kelda.effect
  SpatialAudio spatial_audio = SpatialAudio::kUnknown;
  bool spatial_stereo = false;  // it takes stereo, too
};

// Throws Failure (input), which names the text as `name`, if it holds no properties.
DeviceReport ReadDeviceReport(const std::string& name, std::string_view text);

// Prints the report of the text in the file `path`, or of standard input if that is "-". Returns
// whether the effect can be put into the device, as far as the text tells. Throws Failure (input).
bool DiagnoseDevice(const std::string& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_DEVICE_DEVICE_REPORT_H_
