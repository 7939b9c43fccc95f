// What can be changed on an effect, written "key=value": before the audio starts
// by an option, while it runs by the timeline.
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
};

// Whether the setting acts on the effect's buffering rather than on its sound:
// reset, enable, disable.
bool TouchesBuffering(const Setting& setting);

// Reads "key=value", or "key" where no value belongs. Throws Failure (usage)
// with the value and what is allowed.
Setting ParseSetting(std::string_view text);

// One line a key, for a help text.
std::string SettingHelp();

// Carries the setting out. A property is set for the process, everything else
// is a command to `session`; failures are the session's.
void Apply(const Setting& setting, EffectSession* session);

// Sets a system property from "NAME=VALUE". Throws Failure (usage).
void SetProperty(const std::string& assignment);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_SETTING_H_
