#include "changeover/sound.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "effect/device_types.h"
#include "platform/data_directory.h"
#include "settings/tuning_directory.h"
#include "settings/tuning_files.h"

namespace kelda::changeover {

uint32_t DeviceWord(std::span<const uint32_t> devices) {
  const bool one = !devices.empty() && std::all_of(devices.begin(), devices.end(),
                                                   [&](uint32_t d) { return d == devices[0]; });
  return one ? devices[0] : kNoDevice;
}

SoundName NameOf(const Sound& sound) noexcept {
  constexpr const char* kModes[] = {"off", "music", "cinema"};
  constexpr const char* kHeadphones[kParameterSets] = {
      "", "", ", wired", ", wired, personalized", ", bluetooth", ", bluetooth, personalized"};
  SoundName name;
  std::snprintf(name.text, sizeof(name.text), "%s%s", kModes[static_cast<std::size_t>(sound.mode)],
                sound.headphone ? kHeadphones[static_cast<std::size_t>(*sound.headphone)] : "");
  return name;
}

Outcome::Outcome() {
  settings_.bluetooth_hrtf = GetHrtfType(DataPath(tuning_file::kBluetoothHki.name));
  settings_.wired_hrtf = GetHrtfType(DataPath(tuning_file::kWiredHki.name));
  applications_.Reload();
}

void Outcome::Follow(const Setting& setting) {
  switch (setting.kind) {
    case Setting::Kind::Mode:
      settings_.requested_mode = UpmixMode{setting.value};
      return Decide(Changed::Mode);
    case Setting::Kind::Device:
      settings_.device = DeviceTypeOf(static_cast<audio_devices_t>(setting.value));
      return Decide(Changed::Device);
    case Setting::Kind::WiredHrtf:
      settings_.wired_hrtf = HrtfType{setting.value};
      return DecideHrtf(AudioDeviceType::Wired);
    case Setting::Kind::BluetoothHrtf:
      settings_.bluetooth_hrtf = HrtfType{setting.value};
      return DecideHrtf(AudioDeviceType::Bluetooth);
    case Setting::Kind::Application:
      settings_.app_mode = applications_.ModeOf(setting.package, setting.value != 0);
      if (settings_.requested_mode == UpmixMode::Auto) {
        Decide(Changed::Mode);
      }
      return;
    case Setting::Kind::ReloadApplications:
      return applications_.Reload();
    case Setting::Kind::ReloadTuning:
      ++tuning_;
      return;
  }
}

void Outcome::DecideHrtf(AudioDeviceType device) {
  if (settings_.device == device) {
    Decide(Changed::Hrtf);
  }
}

void Outcome::Decide(Changed changed) {
  const Plan plan = MakePlan(settings_, runs_, changed);
  if (plan.mode_change) {
    for (const StageSwitch& stage_switch : plan.mode_change->switches) {
      if (stage_switch.stage == Stage::HeadphoneEqualizer) {
        equalizer_ = stage_switch.on;
      }
    }
    runs_ = plan.mode;
  }
  if (plan.headphone) {
    equalizer_ = plan.headphone->equalizer;
    headphone_ = plan.headphone->files;
  }
}

Sound Outcome::sound() const {
  if (runs_ == UpmixMode::Off && !equalizer_) {
    return {};
  }
  return {runs_, headphone_, tuning_};
}

}  // namespace kelda::changeover
