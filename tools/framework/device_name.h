// Names of output devices.
#ifndef KELDA_TOOLS_FRAMEWORK_DEVICE_NAME_H_
#define KELDA_TOOLS_FRAMEWORK_DEVICE_NAME_H_

#include <system/audio.h>

#include <optional>
#include <string>
#include <string_view>

namespace kelda::tools {

// Reads a short name ("wired", "bluetooth", "speaker", ...), a name of the
// platform, with or without "AUDIO_DEVICE_OUT_" and in any case, or a number
// (decimal, or hexadecimal with 0x). Empty if it is none of these.
std::optional<audio_devices_t> ParseDevice(std::string_view text);

// The short name of a device, or else its number in hexadecimal: what ParseDevice reads back.
std::string NameOfDevice(audio_devices_t device);

// The short names, separated by ", ".
std::string ShortDeviceNames();

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_DEVICE_NAME_H_
