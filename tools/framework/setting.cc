#include "tools/framework/setting.h"

#include <cutils/properties.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/text_file.h"
#include "tools/framework/device_name.h"

namespace kelda::tools {
namespace {

using Key = Setting::Key;

[[noreturn]] void Refuse(const std::string& message) { throw Failure(ExitCode::kUsage, message); }

uint32_t ParseMode(std::string_view value) {
  const auto* const found = std::find(std::begin(kModeNames), std::end(kModeNames), value);
  if (found == std::end(kModeNames)) {
    Refuse("unknown mode " + Quoted(value) + " (off, music, cinema, auto)");
  }
  return static_cast<uint32_t>(found - std::begin(kModeNames));
}

uint32_t ParseHrtf(std::string_view value) {
  if (value != "standard" && value != "personalized") {
    Refuse("unknown HRTF type " + Quoted(value) + " (standard, personalized)");
  }
  return value == "standard" ? 1 : 2;
}

std::string ParseApp(std::string_view value) {
  const std::size_t separator = value.find('&');
  if (separator == std::string_view::npos) {
    return std::string(value) + "&0";
  }
  const std::string_view flag = value.substr(separator + 1);
  if (flag != "0" && flag != "1") {
    Refuse("unknown application flag " + Quoted(flag) + " (0, 1)");
  }
  return std::string(value);
}

uint32_t ParseDeviceType(std::string_view value) {
  const auto device = ParseDevice(value);
  if (!device) {
    Refuse("unknown device " + Quoted(value) + " (" + ShortDeviceNames() +
           ", a name of the platform, or a number up to 0xffffffff)");
  }
  return *device;
}

std::string ParseProperty(std::string_view value) {
  if (value.find('=') == std::string_view::npos || value.front() == '=') {
    Refuse("a property is NAME=VALUE, not " + Quoted(value));
  }
  return std::string(value);
}

constexpr struct {
  std::string_view name;
  Key key;
  std::string_view value = {};  // its form; empty if the key takes none
  // One of them reads the value, which is a number or a text.
  uint32_t (*number)(std::string_view value) = nullptr;
  std::string (*text)(std::string_view value) = nullptr;
} kKeys[] = {
    {"mode", Key::kMode, "off|music|cinema|auto", ParseMode},
    {"device", Key::kDevice, "NAME|NUMBER", ParseDeviceType},
    {"wired-hrtf", Key::kWiredHrtf, "standard|personalized", ParseHrtf},
    {"bluetooth-hrtf", Key::kBluetoothHrtf, "standard|personalized", ParseHrtf},
    {"app", Key::kApp, "PACKAGE[&FLAG]", nullptr, ParseApp},
    {"reload-apps", Key::kReloadApps},
    {"reset", Key::kReset},
    {"enable", Key::kEnable},
    {"disable", Key::kDisable},
    {"property", Key::kProperty, "NAME=VALUE", nullptr, ParseProperty},
};

}  // namespace

bool TouchesBuffering(const Setting& setting) {
  return setting.key == Key::kReset || setting.key == Key::kEnable || setting.key == Key::kDisable;
}

Setting ParseSetting(std::string_view text) {
  const std::size_t separator = text.find('=');
  const std::string_view name = text.substr(0, separator);
  const bool has_value = separator != std::string_view::npos;
  const std::string_view value = has_value ? text.substr(separator + 1) : "";
  const auto* const known = std::find_if(std::begin(kKeys), std::end(kKeys),
                                         [&](const auto& entry) { return entry.name == name; });
  if (known == std::end(kKeys)) {
    std::string names;
    for (const auto& entry : kKeys) {
      names.append(names.empty() ? "" : ", ").append(entry.name);
    }
    Refuse("unknown key " + Quoted(name) + " (" + names + ")");
  }
  if (has_value == known->value.empty()) {
    Refuse(has_value ? Quoted(name) + " takes no value, but was given " + Quoted(value)
                     : Quoted(name) + " needs a value (" + std::string(known->value) + ")");
  }
  return {known->key, known->number == nullptr ? 0 : known->number(value),
          known->text == nullptr ? "" : known->text(value)};
}

std::string ToText(const Setting& setting) {
  const auto* const known =
      std::find_if(std::begin(kKeys), std::end(kKeys),
                   [&](const auto& entry) { return entry.key == setting.key; });
  const std::string name(known->name);
  switch (setting.key) {
    case Key::kMode:
      return name + "=" + kModeNames[setting.number];
    case Key::kDevice:
      return name + Format("=0x%x", setting.number);
    case Key::kWiredHrtf:
    case Key::kBluetoothHrtf:
      return name + (setting.number == 1 ? "=standard" : "=personalized");
    default:
      return known->value.empty() ? name : name + "=" + setting.text;
  }
}

std::string SettingHelp() {
  std::string help;
  for (const auto& entry : kKeys) {
    help.append("  ").append(entry.name).append(entry.value.empty() ? "" : "=");
    help.append(entry.value).append("\n");
  }
  return help;
}

void SetProperty(const std::string& assignment) {
  const std::size_t separator = assignment.find('=');
  if (separator == std::string::npos ||
      property_set(assignment.substr(0, separator).c_str(),
                   assignment.substr(separator + 1).c_str()) != 0) {
    Refuse("a property is NAME=VALUE with a value of up to " +
           std::to_string(PROPERTY_VALUE_MAX - 1) + " bytes, not " + Quoted(assignment));
  }
}

void Apply(const Setting& setting, EffectSession* session) {
  switch (setting.key) {
    case Key::kMode:
      return session->SetParam(UpmixParam::Mode, setting.number);
    case Key::kDevice:
      return session->SetDevice(setting.number);
    case Key::kWiredHrtf:
      return session->SetParam(UpmixParam::WiredHrtf, setting.number);
    case Key::kBluetoothHrtf:
      return session->SetParam(UpmixParam::BluetoothHrtf, setting.number);
    case Key::kApp:
      return session->SetParam(UpmixParam::AppPackage, setting.text);
    case Key::kReloadApps:
      return session->SetParam(UpmixParam::ReloadTunedAppList, std::string_view());
    case Key::kReset:
      return session->Reset();
    case Key::kEnable:
      return session->Enable();
    case Key::kDisable:
      return session->Disable();
    case Key::kProperty:
      return SetProperty(setting.text);
  }
}

}  // namespace kelda::tools
