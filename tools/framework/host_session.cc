#include "tools/framework/host_session.h"

#include <algorithm>

#include "tools/core/failure.h"

namespace kelda::tools {

using changeover::Session;
using changeover::Worker;

std::optional<changeover::Setting> HostSetting(const Setting& setting) {
  using Key = Setting::Key;
  using Kind = changeover::Setting::Kind;
  switch (setting.key) {
    case Key::kMode:
      return changeover::Setting{Kind::Mode, setting.number};
    case Key::kDevice:
      return changeover::Setting{Kind::Device, setting.number};
    case Key::kWiredHrtf:
      return changeover::Setting{Kind::WiredHrtf, setting.number};
    case Key::kBluetoothHrtf:
      return changeover::Setting{Kind::BluetoothHrtf, setting.number};
    case Key::kApp: {
      const std::size_t end = setting.text.find('&');
      return changeover::Setting{Kind::Application,
                                 setting.text.compare(end + 1, 1, "1") == 0 ? 1u : 0u,
                                 setting.text.substr(0, end)};
    }
    case Key::kReloadApps:
      return changeover::Setting{Kind::ReloadApplications};
    case Key::kReset:
    case Key::kEnable:
    case Key::kDisable:
    case Key::kProperty:
      break;
  }
  return std::nullopt;
}

HostSession::HostSession(const EffectLibrary& library, changeover::SessionOptions options)
    : worker_(Worker::Make(library.info(), Worker::Threads::None)),
      session_(worker_ == nullptr ? nullptr : Session::Open(worker_.get(), options)) {
  if (session_ == nullptr) {
    throw Failure(ExitCode::kRefused,
                  "the effect refused to be created; property vendor.kelda.effect must be 1");
  }
}

void HostSession::Enable() {
  worker_->Step();
  session_->Start();
  enabled_ = true;
  filled_ = 0;
}

void HostSession::Disable() {
  session_->Stop();
  enabled_ = false;
}

void HostSession::Reset() {
  session_->Reset();
  filled_ = 0;
}

void HostSession::Apply(const Setting& setting) {
  using Key = Setting::Key;
  if (const auto host_setting = HostSetting(setting)) {
    if (session_->Set(*host_setting) != 0) {
      throw Failure(ExitCode::kRefused, "there is no memory for a setting");
    }
    set_ = true;
    return;
  }
  switch (setting.key) {
    case Key::kReset:
      return Reset();
    case Key::kEnable:
      return Enable();
    case Key::kDisable:
      return Disable();
    default:
      return SetProperty(setting.text);
  }
}

void HostSession::Process(float* interleaved, std::size_t frames) {
  // The worker does its part once a period and after a setting, whatever the blocks are: it also
  // lets instances that wait recover, and that must not depend on how often it is called.
  while (enabled_ && frames > 0) {
    if (filled_ == 0 || set_) {
      worker_->Step();
      set_ = false;
    }
    const std::size_t piece = std::min(frames, kPeriodFrames - filled_);
    session_->Process(interleaved, interleaved, piece);
    filled_ = (filled_ + piece) % kPeriodFrames;
    interleaved += kChannels * piece;
    frames -= piece;
  }
}

}  // namespace kelda::tools
