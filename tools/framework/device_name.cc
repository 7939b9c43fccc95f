#include "tools/framework/device_name.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "tools/core/format.h"

namespace kelda::tools {
namespace {

struct DeviceName {
  std::string_view name;
  audio_devices_t device;
};

constexpr DeviceName kShortNames[] = {
    {"wired", AUDIO_DEVICE_OUT_WIRED_HEADPHONE},
    {"headset", AUDIO_DEVICE_OUT_WIRED_HEADSET},
    {"usb", AUDIO_DEVICE_OUT_USB_HEADSET},
    {"bluetooth", AUDIO_DEVICE_OUT_BLUETOOTH_A2DP_HEADPHONES},
    {"ble", AUDIO_DEVICE_OUT_BLE_HEADSET},
    {"speaker", AUDIO_DEVICE_OUT_SPEAKER},
    {"earpiece", AUDIO_DEVICE_OUT_EARPIECE},
    {"line", AUDIO_DEVICE_OUT_LINE},
    {"hdmi", AUDIO_DEVICE_OUT_HDMI},
};

// All output devices of API 33; system/audio.h declares those the effect knows.
constexpr std::string_view kPlatformPrefix = "AUDIO_DEVICE_OUT_";
constexpr DeviceName kPlatformNames[] = {
    {"EARPIECE", 0x1},
    {"SPEAKER", 0x2},
    {"WIRED_HEADSET", 0x4},
    {"WIRED_HEADPHONE", 0x8},
    {"BLUETOOTH_SCO", 0x10},
    {"BLUETOOTH_SCO_HEADSET", 0x20},
    {"BLUETOOTH_SCO_CARKIT", 0x40},
    {"BLUETOOTH_A2DP", 0x80},
    {"BLUETOOTH_A2DP_HEADPHONES", 0x100},
    {"BLUETOOTH_A2DP_SPEAKER", 0x200},
    {"AUX_DIGITAL", 0x400},
    {"HDMI", 0x400},
    {"ANLG_DOCK_HEADSET", 0x800},
    {"DGTL_DOCK_HEADSET", 0x1000},
    {"USB_ACCESSORY", 0x2000},
    {"USB_DEVICE", 0x4000},
    {"REMOTE_SUBMIX", 0x8000},
    {"TELEPHONY_TX", 0x10000},
    {"LINE", 0x20000},
    {"HDMI_ARC", 0x40000},
    {"HDMI_EARC", 0x40001},
    {"SPDIF", 0x80000},
    {"FM", 0x100000},
    {"AUX_LINE", 0x200000},
    {"SPEAKER_SAFE", 0x400000},
    {"IP", 0x800000},
    {"BUS", 0x1000000},
    {"PROXY", 0x2000000},
    {"USB_HEADSET", 0x4000000},
    {"HEARING_AID", 0x8000000},
    {"ECHO_CANCELLER", 0x10000000},
    {"BLE_HEADSET", 0x20000000},
    {"BLE_SPEAKER", 0x20000001},
    {"BLE_BROADCAST", 0x20000002},
    {"DEFAULT", 0x40000000},
};

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return lower(x) == lower(y); });
}

std::optional<audio_devices_t> ParseNumber(std::string_view text) {
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) {
    text.remove_prefix(2);
  }
  audio_devices_t device = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), device, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return device;
}

}  // namespace

std::optional<audio_devices_t> ParseDevice(std::string_view text) {
  for (const DeviceName& known : kShortNames) {
    if (EqualIgnoringCase(text, known.name)) {
      return known.device;
    }
  }
  std::string_view name = text;
  if (EqualIgnoringCase(name.substr(0, kPlatformPrefix.size()), kPlatformPrefix)) {
    name.remove_prefix(kPlatformPrefix.size());
  }
  for (const DeviceName& known : kPlatformNames) {
    if (EqualIgnoringCase(name, known.name)) {
      return known.device;
    }
  }
  return ParseNumber(text);
}

std::string NameOfDevice(audio_devices_t device) {
  for (const DeviceName& known : kShortNames) {
    if (known.device == device) {
      return std::string(known.name);
    }
  }
  return Format("0x%x", static_cast<unsigned>(device));
}

std::string ShortDeviceNames() {
  std::string names;
  for (const DeviceName& known : kShortNames) {
    names.append(names.empty() ? "" : ", ").append(known.name);
  }
  return names;
}

}  // namespace kelda::tools
