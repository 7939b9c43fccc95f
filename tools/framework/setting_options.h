// The options by which commands set the effect before the audio starts.
#ifndef KELDA_TOOLS_FRAMEWORK_SETTING_OPTIONS_H_
#define KELDA_TOOLS_FRAMEWORK_SETTING_OPTIONS_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tools/framework/setting.h"

namespace CLI {  // NOLINT(readability-identifier-naming)
class App;
}

namespace kelda::tools {

// --mode, --device, --wired-hrtf, --bluetooth-hrtf, --app, --app-flag; --tuning, --property,
// --library, --log-level.
struct SettingOptions {
  std::string mode = "music";
  std::string device = "wired";
  std::string wired_hrtf;
  std::string bluetooth_hrtf;
  std::string app;
  std::string app_flag = "0";
  std::filesystem::path tuning;
  std::vector<std::string> properties;
  std::string log_level = "warn";
  std::filesystem::path library;

  // This object outlives the parsing.
  void AddTo(CLI::App* command);

  // In the order in which a phone sends them: the output, the listener's choices, the application,
  // the mode. Throws Failure (usage).
  std::vector<Setting> Settings() const;

  // Sets the properties, the tuning directory of the libraries that are loaded from now on, and
  // what is logged. Returns the effect library to load. Throws Failure (usage).
  std::filesystem::path Prepare() const;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_FRAMEWORK_SETTING_OPTIONS_H_
