#include "engine/kelda_upmix.h"

#include <cstddef>
#include <utility>

#include "pipeline/pass_through_processor.h"
#include "platform/audio_format.h"
#include "platform/data_directory.h"
#include "platform/log.h"
#include "processors/headphone_equalizer_processor.h"
#include "processors/upl_audio_processor.h"
#include "processors/upmix_cinema_processor.h"
#include "processors/upmix_music_processor.h"
#include "settings/tuning_files.h"

namespace kelda {

KeldaUpmix::KeldaUpmix() {
  for (std::size_t set = 0; set < kParameterSets; ++set) {
    for (const auto& [key, file] : ParametersOf(ParameterSet{static_cast<int>(set)})) {
      parameters_[set][key] = file == nullptr ? "" : DataPath(file);
    }
  }
  tuned_apps_.Reload();
  Initialize();
  CreateProcessorChain();
  SetProcessorChain();
}

KeldaUpmix::~KeldaUpmix() { DestoryProcessorChain(); }

int KeldaUpmix::Initialize() {
  settings_ = {};
  actual_mode_ = UpmixMode::Off;
  settings_.bluetooth_hrtf = GetHrtfType(DataPath(tuning_file::kBluetoothHki.name));
  settings_.wired_hrtf = GetHrtfType(DataPath(tuning_file::kWiredHki.name));
  return 0;
}

void KeldaUpmix::CreateProcessorChain() {
  const auto create = [this](Stage stage, auto processor) {
    stages_[static_cast<std::size_t>(stage)] = std::move(processor);
  };
  create(Stage::PassThrough,
         std::make_unique<PassThroughProcessor>(kStereoPlanes, kStereoPlanes, kPeriodFrames));
  create(Stage::Music, std::make_unique<UpmixMusicProcessor>());
  create(Stage::Cinema, std::make_unique<UpmixCinemaProcessor>());
  create(Stage::HeadphoneEqualizer, std::make_unique<HeadphoneEqualizerProcessor>());
  create(Stage::LevelControl, std::make_unique<UplAudioProcessor>());
}

void KeldaUpmix::SetProcessorChain() {
  for (const auto& stage : stages_) {
    chain_.push_back(stage.get());
  }
  Switch({Stage::PassThrough, true});
  Switch({Stage::Music, false});
  Switch({Stage::Cinema, false});
  Switch({Stage::LevelControl, false});
  Switch({Stage::HeadphoneEqualizer, false});
  sequencer_.SetProcessorChain(&chain_);
}

void KeldaUpmix::DestoryProcessorChain() {
  chain_.clear();
  for (auto& stage : stages_) {
    stage.reset();
  }
}

void KeldaUpmix::Process(const float* in, float* out, unsigned frames) {
  sequencer_.Process(in, out, frames);
}

int KeldaUpmix::SetMode(UpmixMode mode) {
  settings_.requested_mode = mode;
  return ChangeActualMode(mode);
}

int KeldaUpmix::ChangeActualMode(UpmixMode mode) {
  EngineSettings settings = settings_;
  settings.requested_mode = mode;
  Apply(MakePlan(settings, actual_mode_, Changed::Mode));
  return 0;
}

int KeldaUpmix::SetDevice(AudioDeviceType type) {
  settings_.device = type;
  Apply(MakePlan(settings_, actual_mode_, Changed::Device));
  return 0;
}

int KeldaUpmix::SetHrtf(AudioDeviceType type, HrtfType hrtf) {
  if (type == AudioDeviceType::Other) {
    return 1;
  }
  EngineSettings settings = settings_;
  settings.device = type;
  (type == AudioDeviceType::Wired ? settings.wired_hrtf : settings.bluetooth_hrtf) = hrtf;
  Apply(MakePlan(settings, actual_mode_, Changed::Hrtf));
  return 0;
}

int KeldaUpmix::SetWiredHrtf(HrtfType hrtf) {
  settings_.wired_hrtf = hrtf;
  if (settings_.device == AudioDeviceType::Wired) {
    SetHrtf(settings_.device, hrtf);
  }
  return 0;
}

int KeldaUpmix::SetBluetoothHrtf(HrtfType hrtf) {
  settings_.bluetooth_hrtf = hrtf;
  if (settings_.device == AudioDeviceType::Bluetooth) {
    SetHrtf(settings_.device, hrtf);
  }
  return 0;
}

void KeldaUpmix::Apply(const Plan& plan) {
  if (plan.mode_change) {
    for (const StageSwitch& stage_switch : plan.mode_change->switches) {
      Switch(stage_switch);
    }
    actual_mode_ = plan.mode;
    if (plan.mode_change->fade) {
      sequencer_.RequestFadeInOut();
    }
    if (plan.mode_change->level) {
      Send(*plan.mode_change->level);
    }
  } else if (plan.mode != actual_mode_) {
    LogWarning(log_tag::kEffect, "Specified mode is invalid %u", static_cast<unsigned>(plan.mode));
  }
  if (plan.headphone) {
    Switch({Stage::HeadphoneEqualizer, plan.headphone->equalizer});
    Send(plan.headphone->files);
  }
}

void KeldaUpmix::Switch(const StageSwitch& stage_switch) {
  stages_[static_cast<std::size_t>(stage_switch.stage)]->SetEnabled(stage_switch.on);
}

void KeldaUpmix::Send(ParameterSet set) {
  sequencer_.SetParameters(parameters_[static_cast<std::size_t>(set)]);
}

int KeldaUpmix::ReloadTunedAppList() {
  tuned_apps_.Reload();
  return 0;
}

void KeldaUpmix::SetAppPackage(const std::string& package, bool flag) {
  const UpmixMode mode = tuned_apps_.ModeOf(package, flag);
  if (settings_.requested_mode == UpmixMode::Auto) {
    ChangeActualMode(mode);
  }
  settings_.app_mode = mode;
}

void KeldaUpmix::Reset() { sequencer_.Flush(); }

void KeldaUpmix::Dumpsys(std::string* out) const { sequencer_.Dumpsys(out); }

void KeldaUpmix::StartPcmDump(unsigned request) {
  sequencer_.StartPcmDump(DataDirectory(), request);
}

void KeldaUpmix::StopPcmDump() { sequencer_.StopPcmDump(); }

}  // namespace kelda
