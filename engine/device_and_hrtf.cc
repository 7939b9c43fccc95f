// The engine's answer to a new output device or HRTF: which tuning files go with
// it, and whether the headphone equalizer runs.
#include <string>

#include "engine/kelda_upmix.h"
#include "platform/data_directory.h"

namespace kelda {

KeldaUpmix::HeadphoneFiles::HeadphoneFiles(const std::string& device_name)
    : standard(Of(device_name, false)), personalized(Of(device_name, true)) {}

ParameterMap KeldaUpmix::HeadphoneFiles::Of(const std::string& device_name, bool personalized) {
  const std::string kind = personalized ? "hpp" : "hps";
  return {
      {"ap_param_hki_config", DataPath(device_name + ".hki.config")},
      {"ap_param_ba_config", personalized ? DataPath(device_name + ".ba.config") : ""},
      {"music_param_bin_file", DataPath("upmix.music." + kind + ".bin")},
      {"cinema_param_bin_file", DataPath("upmix.cinema." + kind + ".bin")},
  };
}

int KeldaUpmix::SetDevice(AudioDeviceType type) {
  device_ = type;
  ChangeActualMode(ModeToRun());
  if (device_ != AudioDeviceType::Other) {
    SetHrtf(device_, device_ == AudioDeviceType::Wired ? wired_hrtf_ : bluetooth_hrtf_);
  }
  return 0;
}

int KeldaUpmix::SetHrtf(AudioDeviceType type, HrtfType hrtf) {
  const HeadphoneFiles* files = nullptr;
  switch (type) {
    case AudioDeviceType::Bluetooth:
      files = &bluetooth_files_;
      break;
    case AudioDeviceType::Wired:
      files = &wired_files_;
      break;
    default:
      return 1;
  }
  const bool personalized = hrtf == HrtfType::Personalized;
  // Whatever the mode: personalized listeners hear their headphone's equalizer with
  // the upmix off, too, until the next change to Off or to another HRTF.
  hp_eq_->SetEnabled(personalized);
  sequencer_.SetParameters(personalized ? files->personalized : files->standard);
  return 0;
}

int KeldaUpmix::SetWiredHrtf(HrtfType hrtf) {
  wired_hrtf_ = hrtf;
  if (device_ == AudioDeviceType::Wired) SetHrtf(device_, hrtf);
  return 0;
}

int KeldaUpmix::SetBluetoothHrtf(HrtfType hrtf) {
  bluetooth_hrtf_ = hrtf;
  if (device_ == AudioDeviceType::Bluetooth) SetHrtf(device_, hrtf);
  return 0;
}

}  // namespace kelda
