#include "hal/session.h"

#include <cutils/properties.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <exception>
#include <iterator>
#include <mutex>
#include <utility>

#include "changeover/session.h"
#include "effect/parameters.h"
#include "hal/rate_bridge.h"
#include "platform/audio_format.h"
#include "platform/log.h"
#include "platform/math_constants.h"

namespace kelda::hal {
namespace {

using changeover::kChannels;
using changeover::Setting;

constexpr uint32_t kPositions = 0x00FFFFFF;  // of a layout mask; above are haptic channels

bool HasTwoPositions(uint32_t mask) {
  const uint32_t rest = mask & (mask - 1);
  return (mask & ~kPositions) == 0 && rest != 0 && (rest & (rest - 1)) == 0;
}

// The platform's base class makes its buffers of them, and ends the process where it cannot.
bool HoldsFrames(int64_t frames) {
  constexpr int64_t kMost = 1 << 20;
  return frames > 0 && frames <= kMost;
}

bool IsTaken(const Common& common) {
  const AudioConfig& in = common.input;
  const AudioConfig& out = common.output;
  return in.sample_rate_hz == out.sample_rate_hz && in.channel_mask == out.channel_mask &&
         std::find(std::begin(kSampleRatesHz), std::end(kSampleRatesHz), in.sample_rate_hz) !=
             std::end(kSampleRatesHz) &&
         HasTwoPositions(in.channel_mask) && in.is_float && out.is_float &&
         HoldsFrames(in.frame_count) && HoldsFrames(out.frame_count);
}

Status Refuse(Status status, const char* why) {
  LogError(log_tag::kEffect, "ERROR: session: %s", why);
  return status;
}

Status RefuseCommon(const Common& common) {
  LogError(log_tag::kEffect,
           "ERROR: session: input of %d Hz, mask %#x, %lld frames, output of %d Hz, mask %#x, %lld "
           "frames is not what this effect takes",
           common.input.sample_rate_hz, common.input.channel_mask,
           static_cast<long long>(common.input.frame_count), common.output.sample_rate_hz,
           common.output.channel_mask, static_cast<long long>(common.output.frame_count));
  return Status::IllegalArgument;
}

Setting SettingOf(ParamValue value) {
  switch (value.param) {
    case UpmixParam::Mode:
      return {Setting::Kind::Mode, value.word};
    case UpmixParam::WiredHrtf:
      return {Setting::Kind::WiredHrtf, value.word};
    case UpmixParam::BluetoothHrtf:
      return {Setting::Kind::BluetoothHrtf, value.word};
    case UpmixParam::ReloadTunedAppList:
      return {Setting::Kind::ReloadApplications};
    default:
      return {Setting::Kind::Application, value.word, std::move(value.package)};
  }
}

}  // namespace

bool Offered() noexcept { return property_get_int32("vendor.kelda.effect", 0) == 1; }

std::shared_ptr<changeover::Worker> SharedWorker(const audio_effect_library_t& library) noexcept
    try {
  static std::mutex mutex;
  static std::weak_ptr<changeover::Worker> shared;
  const std::lock_guard lock(mutex);
  std::shared_ptr<changeover::Worker> worker = shared.lock();
  if (worker == nullptr) {
    worker = changeover::Worker::Make(library, changeover::Worker::Threads::Own);
    shared = worker;
  }
  return worker;
} catch (const std::exception&) {
  return nullptr;
}

// What depends on the stream's rate: the way to the effect's own, and the way from the sound to the
// unprocessed input.
struct Session::Rate {
  explicit Rate(int32_t rate_hz) : dry_gains(static_cast<std::size_t>(rate_hz) / 20) {
    if (rate_hz != kSampleRateHz) {
      bridge = std::make_unique<RateBridge>(rate_hz);
    }
    for (std::size_t frame = 0; frame < dry_gains.size(); ++frame) {
      const double part = static_cast<double>(frame + 1) / static_cast<double>(dry_gains.size());
      dry_gains[frame] = static_cast<float>(0.5 - 0.5 * std::cos(kPi * part));
    }
  }

  std::unique_ptr<RateBridge> bridge;  // null at 48000 Hz
  std::vector<float> dry_gains;        // of the unprocessed input, over 50 ms
};

Session::Session(std::shared_ptr<changeover::Worker> worker, SessionOptions options) noexcept
    : worker_(std::move(worker)), options_(options) {}

Session::~Session() = default;

Status Session::Open(const Common& common) noexcept try {
  if (state() != State::Init) {
    return Status::Ok;
  }
  if (!IsTaken(common)) {
    return RefuseCommon(common);
  }
  auto rate = std::make_unique<Rate>(common.input.sample_rate_hz);
  auto host = worker_ != nullptr ? changeover::Session::Open(worker_.get(), {}) : nullptr;
  if (host == nullptr) {
    return Refuse(Status::Unsupported, "no instance of the effect");
  }
  rate_ = std::move(rate);
  host_ = std::move(host);
  common_ = common;
  devices_.clear();
  audio_mode_ = audio_source_ = 0;
  volume_ = {};
  state_.store(State::Idle, std::memory_order_release);
  return Status::Ok;
} catch (const std::exception&) {
  return Refuse(Status::Unsupported, "no memory to open");
}

Status Session::Close() noexcept {
  if (state() == State::Processing) {
    return Refuse(Status::IllegalState, "closed while it processes");
  }
  state_.store(State::Init, std::memory_order_release);
  host_.reset();
  rate_.reset();
  return Status::Ok;
}

Status Session::Reopen() const noexcept {
  return state() == State::Init ? Refuse(Status::IllegalState, "reopened before it is open")
                                : Status::Ok;
}

Status Session::Do(Command command) noexcept {
  const State before = state();
  if (before == State::Init) {
    return Refuse(Status::IllegalState, "command before it is open");
  }
  switch (command) {
    case Command::Start:
      if (before == State::Idle) {
        Begin();
        host_->Start();
      }
      state_.store(State::Processing, std::memory_order_release);
      return Status::Ok;
    case Command::Stop:
      if (before == State::Processing && options_.drains) {
        state_.store(State::Draining, std::memory_order_release);
      } else if (before == State::Processing) {
        End();
      }
      return Status::Ok;
    case Command::Reset:
      if (before != State::Idle) {
        End();
      }
      return Status::Ok;
  }
  return Refuse(Status::IllegalArgument, "unknown command");
}

void Session::Begin() {
  dry_ = 0;
  if (rate_->bridge != nullptr) {
    rate_->bridge->Clear();
  }
}

void Session::End() {
  host_->Stop();
  state_.store(State::Idle, std::memory_order_release);
}

Status Session::SetCommon(const Common& common) noexcept try {
  const State before = state();
  if (before == State::Init) {
    return Refuse(Status::IllegalState, "parameter before it is open");
  }
  if (!IsTaken(common)) {
    return RefuseCommon(common);
  }
  if (common.input.sample_rate_hz != common_.input.sample_rate_hz) {
    rate_ = std::make_unique<Rate>(common.input.sample_rate_hz);
    dry_ = 0;
    if (before == State::Processing) {
      host_->Reset();
    } else if (before == State::Draining) {
      End();
    }
  }
  common_ = common;
  return Status::Ok;
} catch (const std::exception&) {
  return Refuse(Status::Unsupported, "no memory for another rate");
}

Status Session::Store(const Setting& setting) {
  return host_->Set(setting) == 0 ? Status::Ok
                                  : Refuse(Status::Unsupported, "no memory for a setting");
}

Status Session::SetDevices(std::span<const DeviceDescription> devices) noexcept try {
  if (state() == State::Init) {
    return Refuse(Status::IllegalState, "parameter before it is open");
  }
  std::vector<DeviceDescription> kept(devices.begin(), devices.end());
  const Status status =
      OnlyInputs(devices) ? Status::Ok : Store({Setting::Kind::Device, DeviceWord(devices)});
  if (status == Status::Ok) {
    devices_.swap(kept);
  }
  return status;
} catch (const std::exception&) {
  return Refuse(Status::Unsupported, "no memory for a list of devices");
}

template <typename Value>
Status Session::Keep(Value value, Value* kept) noexcept {
  if (state() == State::Init) {
    return Refuse(Status::IllegalState, "parameter before it is open");
  }
  *kept = value;
  return Status::Ok;
}

Status Session::SetAudioMode(int32_t mode) noexcept { return Keep(mode, &audio_mode_); }
Status Session::SetAudioSource(int32_t source) noexcept { return Keep(source, &audio_source_); }
Status Session::SetVolume(Volume volume) noexcept { return Keep(volume, &volume_); }

template <typename Value>
std::optional<Value> Session::WhenOpen(const Value& value) const {
  return state() == State::Init ? std::nullopt : std::optional(value);
}

std::optional<Common> Session::common() const noexcept { return WhenOpen(common_); }
std::optional<std::vector<DeviceDescription>> Session::devices() const {
  return WhenOpen(devices_);
}
std::optional<int32_t> Session::audio_mode() const noexcept { return WhenOpen(audio_mode_); }
std::optional<int32_t> Session::audio_source() const noexcept { return WhenOpen(audio_source_); }
std::optional<Volume> Session::volume() const noexcept { return WhenOpen(volume_); }

Status Session::SetParameter(std::span<const uint8_t> bytes) noexcept try {
  if (state() == State::Init) {
    return Refuse(Status::IllegalState, "parameter before it is open");
  }
  if (!HoldsParam(bytes.data(), bytes.size())) {
    return Refuse(Status::IllegalArgument, "parameter that is cut short");
  }
  std::optional<ParamValue> read;
  if (ReadParam(UpmixParam{ParamWord(bytes.data(), kParamIdOffset)},
                ParamWord(bytes.data(), offsetof(effect_param_t, vsize)),
                bytes.data() + kParamValueOffset, &read) != 0) {
    return Status::IllegalArgument;
  }
  return read ? Store(SettingOf(std::move(*read))) : Status::Ok;
} catch (const std::exception&) {
  return Refuse(Status::Unsupported, "no memory for a parameter");
}

Status Session::GetParameter(std::span<const uint8_t> id, std::vector<uint8_t>* answer) noexcept
    try {
  if (state() == State::Init) {
    return Refuse(Status::IllegalState, "parameter before it is open");
  }
  if (id.size() < kParamValueOffset ||
      ParamWord(id.data(), offsetof(effect_param_t, psize)) != sizeof(uint32_t)) {
    return Refuse(Status::IllegalArgument, "identifier that is cut short");
  }
  const UpmixParam param{ParamWord(id.data(), kParamIdOffset)};
  const uint32_t vsize = param == UpmixParam::Mode ? sizeof(uint32_t) : 0;
  if (ParamWord(id.data(), offsetof(effect_param_t, vsize)) < vsize) {
    return Refuse(Status::IllegalArgument, "no room for the parameter's value");
  }
  if (vsize == 0) {
    LogWarning(log_tag::kEffect, "Unknown param is specified: %d", static_cast<int>(param));
  }
  const uint32_t mode = host_->value(Setting::Kind::Mode);
  const uint32_t words[] = {0, sizeof(uint32_t), vsize, static_cast<uint32_t>(param), mode};
  std::vector<uint8_t> bytes(kParamValueOffset + vsize);
  std::memcpy(bytes.data(), words, bytes.size());
  answer->swap(bytes);
  return Status::Ok;
} catch (const std::exception&) {
  return Refuse(Status::Unsupported, "no memory for an answer");
}

BlockResult Session::Process(const float* in, float* out, std::size_t samples) noexcept {
  const State now = state();
  if (now == State::Init || now == State::Idle) {
    return {-ENODATA, 0, 0};
  }
  if (in == nullptr || out == nullptr || samples % kChannels != 0) {
    return {-EINVAL, 0, 0};
  }
  const std::size_t frames = samples / kChannels;
  if (now == State::Draining || dry_ > 0) {
    Drain(in, out, frames);
  } else {
    Play(in, out, frames);
  }
  return {0, static_cast<int32_t>(samples), static_cast<int32_t>(samples)};
}

void Session::Play(const float* in, float* out, std::size_t frames) {
  if (rate_->bridge != nullptr) {
    rate_->bridge->Process(host_.get(), in, out, frames);
  } else {
    host_->Process(in, out, frames);
  }
}

// Goes over to the unprocessed input, or comes back from it.
void Session::Drain(const float* in, float* out, std::size_t frames) {
  const std::vector<float>& gains = rate_->dry_gains;
  const bool draining = state() == State::Draining;
  while (frames > 0) {
    const std::size_t piece = std::min(frames, std::size(dry_input_) / kChannels);
    std::copy_n(in, kChannels * piece, dry_input_);
    Play(in, out, piece);
    for (std::size_t frame = 0; frame < piece; ++frame) {
      const float gain = dry_ > 0 ? gains[dry_ - 1] : 0.0f;
      for (std::size_t i = kChannels * frame; i < kChannels * (frame + 1); ++i) {
        out[i] = (1 - gain) * out[i] + gain * dry_input_[i];
      }
      if (draining) {
        dry_ = std::min(dry_ + 1, gains.size());
      } else if (dry_ > 0) {
        --dry_;
      }
    }
    in += kChannels * piece;
    out += kChannels * piece;
    frames -= piece;
  }
  if (draining && dry_ == gains.size()) {
    state_.store(State::Idle, std::memory_order_release);
  }
}

std::size_t Session::LatencyFrames(int32_t sample_rate_hz) noexcept {
  return sample_rate_hz == kSampleRateHz ? changeover::Session::kLatencyFrames
                                         : RateBridge::LatencyFrames(sample_rate_hz);
}

std::size_t Session::latency_frames() const noexcept {
  return state() == State::Init ? 0 : LatencyFrames(common_.input.sample_rate_hz);
}

std::string Session::Report() const { return host_ != nullptr ? host_->Report() : std::string(); }

}  // namespace kelda::hal
