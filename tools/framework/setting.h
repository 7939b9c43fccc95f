// A setting of the effect, written "key=value". Options set it before the audio starts, the
// timeline while the audio runs.
#ifndef KELDA_TOOLS_FRAMEWORK_SETTING_H_
#define KELDA_TOOLS_FRAMEWORK_SETTING_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/framework/effect_session.h"

namespace kelda::tools {

struct Setting {
  enum class Key {
    kMode,
    kDevice,
    kWiredHrtf,
    kBluetoothHrtf,
    kApp,
    kReloadApps,
    kReset,
    kEnable,
    kDisable,
    kProperty,
  };
  Key key;
  uint32_t number = 0;  // mode, device, HRTF type
  std::string text;     // app: "PACKAGE&FLAG"; property: "NAME=VALUE"

  bool operator==(const Setting&) const = default;
};

// The names of the modes, by their numbers.
inline constexpr const char* kModeNames[] = {"off", "music", "cinema", "auto"};

// Whether the setting affects the effect's buffering and not its sound:
// reset, enable, disable.
bool TouchesBuffering(const Setting& setting);

// Reads "key=value", or "key" if the key takes no value. Throws Failure (usage)
// with the value and what is allowed.
Setting ParseSetting(std::string_view text);

// The text that ParseSetting reads as `setting`.
std::string ToText(const Setting& setting);

// One line for each key, for a help text.
std::string SettingHelp();

// Applies the setting. A property is set for the process; every other setting is a command to
// `session`, whose failures it throws.
void Apply(const Setting& setting, EffectSession* session);

// Sets a system property from "NAME=VALUE". Throws Failure (usage).
void SetProperty(const std::string& assignment);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_SETTING_H_
