#include "tools/framework/setting_options.h"

#include <android/log.h>

#include <CLI/CLI.hpp>
#include <utility>

#include "tools/core/failure.h"
#include "tools/core/status_line.h"
#include "tools/core/text_file.h"
#include "tools/framework/device_name.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

int ParseLogLevel(const std::string& name) {
  constexpr std::pair<const char*, int> kLevels[] = {
      {"verbose", ANDROID_LOG_VERBOSE}, {"debug", ANDROID_LOG_DEBUG},
      {"info", ANDROID_LOG_INFO},       {"warn", ANDROID_LOG_WARN},
      {"error", ANDROID_LOG_ERROR},     {"silent", ANDROID_LOG_SILENT}};
  for (const auto& [known, priority] : kLevels) {
    if (name == known) {
      return priority;
    }
  }
  throw Failure(ExitCode::kUsage, "--log-level: unknown level " + Quoted(name) +
                                      " (verbose, debug, info, warn, error, silent)");
}

// Reads an option "--key value" as the setting "key=value".
Setting ParseOption(const std::string& key, const std::string& value) {
  try {
    return ParseSetting(key + "=" + value);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), "--" + key + ": " + failure.what());
  }
}

}  // namespace

void SettingOptions::AddTo(CLI::App* command) {
  const auto option = [&](const char* name, auto& value, const char* form,
                          const std::string& help) {
    return command->add_option(name, value, help)->type_name(form);
  };
  option("--mode", mode, "MODE", "off, music, cinema or auto (music)");
  option("--device", device, "DEVICE",
         ShortDeviceNames() + ", AUDIO_DEVICE_OUT_... or a number (wired)");
  option("--wired-hrtf", wired_hrtf, "TYPE", "standard or personalized (as the tuning says)");
  option("--bluetooth-hrtf", bluetooth_hrtf, "TYPE", "The same for Bluetooth");
  CLI::Option* const with_app =
      option("--app", app, "PACKAGE", "The playing application, for mode auto");
  option("--app-flag", app_flag, "0|1", "1: cinema if the application is not listed (0)")
      ->check(CLI::IsMember({"0", "1"}))
      ->needs(with_app);
  option("--tuning", tuning, "DIR", "Tuning files; else KELDA_DATA_DIR, else the installed ones");
  option("--property", properties, "NAME=VALUE", "Set a system property; may be repeated")
      ->allow_extra_args(false);
  option("--log-level", log_level, "LEVEL", "verbose, debug, info, warn, error or silent (warn)");
  option("--library", library, "FILE", "Effect library; else the installed one");
}

std::vector<Setting> SettingOptions::Settings() const {
  std::vector<Setting> settings{ParseOption("device", device)};
  if (!wired_hrtf.empty()) {
    settings.push_back(ParseOption("wired-hrtf", wired_hrtf));
  }
  if (!bluetooth_hrtf.empty()) {
    settings.push_back(ParseOption("bluetooth-hrtf", bluetooth_hrtf));
  }
  if (!app.empty()) {
    settings.push_back(ParseOption("app", app + "&" + app_flag));
  }
  settings.push_back(ParseOption("mode", mode));
  return settings;
}

std::filesystem::path SettingOptions::Prepare() const {
  SetProperty("vendor.kelda.effect=1");
  for (const std::string& property : properties) {
    SetProperty(property);
  }
  UseTuningDirectory(tuning);
  ShowLog(ParseLogLevel(log_level));
  return library.empty() ? DefaultEffectLibrary() : library;
}

}  // namespace kelda::tools
