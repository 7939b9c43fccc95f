#include "engine/kelda_upmix.h"

#include <android/log.h>

#include "platform/data_directory.h"
#include "settings/tuning_files.h"

namespace kelda {
namespace {

constexpr char kTag[] = "KelUpm";
constexpr unsigned kPeriodFrames = 1024;

}  // namespace

KeldaUpmix::KeldaUpmix()
    : wired_files_("wired"),
      bluetooth_files_("bluetooth"),
      music_level_{{"upl_param_bin_file", DataPath("upl.music.bin")}},
      cinema_level_{{"upl_param_bin_file", DataPath("upl.cinema.bin")}} {
  tuned_apps_.Reload();
  Initialize();
  CreateProcessorChain();
  SetProcessorChain();
}

KeldaUpmix::~KeldaUpmix() { DestoryProcessorChain(); }

int KeldaUpmix::Initialize() {
  requested_mode_ = UpmixMode::Off;
  actual_mode_ = UpmixMode::Off;
  app_mode_ = UpmixMode::Music;
  device_ = AudioDeviceType::Other;
  bluetooth_hrtf_ = GetHrtfType(DataPath("bluetooth.hki.config"));
  wired_hrtf_ = GetHrtfType(DataPath("wired.hki.config"));
  return 0;
}

void KeldaUpmix::CreateProcessorChain() {
  pass_through_ = std::make_unique<PassThroughProcessor>(2, 2, kPeriodFrames);
  music_ = std::make_unique<UpmixMusicProcessor>();
  cinema_ = std::make_unique<UpmixCinemaProcessor>();
  hp_eq_ = std::make_unique<HeadphoneEqualizerProcessor>();
  upl_ = std::make_unique<UplAudioProcessor>();
}

void KeldaUpmix::SetProcessorChain() {
  chain_ = {pass_through_.get(), music_.get(), cinema_.get(), hp_eq_.get(), upl_.get()};
  pass_through_->SetEnabled(true);
  music_->SetEnabled(false);
  cinema_->SetEnabled(false);
  upl_->SetEnabled(false);
  hp_eq_->SetEnabled(false);
  sequencer_.SetProcessorChain(&chain_);
}

void KeldaUpmix::DestoryProcessorChain() {
  chain_.clear();
  pass_through_.reset();
  music_.reset();
  cinema_.reset();
  hp_eq_.reset();
  upl_.reset();
}

void KeldaUpmix::Process(const float* in, float* out, unsigned frames) {
  sequencer_.Process(in, out, frames);
}

int KeldaUpmix::SetMode(UpmixMode mode) {
  requested_mode_ = mode;
  return ChangeActualMode(ModeToRun());
}

UpmixMode KeldaUpmix::ModeToRun() const {
  return requested_mode_ == UpmixMode::Auto ? app_mode_ : requested_mode_;
}

int KeldaUpmix::ChangeActualMode(UpmixMode mode) {
  const UpmixMode effective = device_ == AudioDeviceType::Other ? UpmixMode::Off : mode;
  if (effective == actual_mode_) return 0;
  const bool hp_eq_wanted =
      (device_ == AudioDeviceType::Wired && wired_hrtf_ == HrtfType::Personalized) ||
      (device_ == AudioDeviceType::Bluetooth && bluetooth_hrtf_ == HrtfType::Personalized);
  const ParameterMap* level = nullptr;
  switch (effective) {
    case UpmixMode::Off:
      music_->SetEnabled(false);
      cinema_->SetEnabled(false);
      hp_eq_->SetEnabled(false);
      upl_->SetEnabled(false);
      pass_through_->SetEnabled(true);
      break;
    case UpmixMode::Music:
      pass_through_->SetEnabled(false);
      cinema_->SetEnabled(false);
      music_->SetEnabled(true);
      hp_eq_->SetEnabled(hp_eq_wanted);
      upl_->SetEnabled(true);
      level = &music_level_;
      break;
    case UpmixMode::Cinema:
      pass_through_->SetEnabled(false);
      music_->SetEnabled(false);
      cinema_->SetEnabled(true);
      hp_eq_->SetEnabled(hp_eq_wanted);
      upl_->SetEnabled(true);
      level = &cinema_level_;
      break;
    default:
      __android_log_print(ANDROID_LOG_WARN, kTag, "Specified mode is invalid %u",
                          static_cast<unsigned>(effective));
      return 0;
  }
  actual_mode_ = effective;
  // Off is immediate: nothing is faded and nothing is loaded.
  if (level == nullptr) return 0;
  sequencer_.RequestFadeInOut();
  sequencer_.SetParameters(*level);
  return 0;
}

int KeldaUpmix::ReloadTunedAppList() {
  tuned_apps_.Reload();
  return 0;
}

void KeldaUpmix::SetAppPackage(const std::string& package, bool flag) {
  std::string kept = package;  // before anything changes: it needs memory
  const UpmixMode unlisted_mode = flag ? UpmixMode::Cinema : UpmixMode::Music;
  const UpmixMode mode =
      tuned_apps_.IsExist(package) ? tuned_apps_.GetValue(package) : unlisted_mode;
  if (requested_mode_ == UpmixMode::Auto) ChangeActualMode(mode);
  app_mode_ = mode;
  app_package_.swap(kept);
}

void KeldaUpmix::Reset() { sequencer_.Flush(); }

void KeldaUpmix::Dumpsys(std::string* out) const { sequencer_.Dumpsys(out); }

void KeldaUpmix::StartPcmDump(unsigned request) {
  sequencer_.StartPcmDump(DataDirectory(), request);
}

void KeldaUpmix::StopPcmDump() { sequencer_.StopPcmDump(); }

}  // namespace kelda
