#include "changeover/instance.h"

#include <cutils/properties.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <numeric>
#include <utility>
#include <vector>

#include "diagnostics/pcm_dump.h"
#include "effect/commands.h"
#include "effect/effect_uuid.h"
#include "platform/data_directory.h"

namespace kelda::changeover {
namespace {

struct Headphone {
  bool wired, personalized;
};

Headphone Of(ParameterSet set) {
  return {set == ParameterSet::WiredStandard || set == ParameterSet::WiredPersonalized,
          set == ParameterSet::WiredPersonalized || set == ParameterSet::BluetoothPersonalized};
}

// Whether all files that the set names are there. Another set is only loaded on the way to the one
// that is wanted, and must not fill the log with files that nobody asked for.
bool IsComplete(ParameterSet set) {
  const auto parameters = ParametersOf(set);
  return std::all_of(parameters.begin(), parameters.end(), [](const Parameter& parameter) {
    return parameter.file == nullptr || access(DataPath(parameter.file).c_str(), R_OK) == 0;
  });
}

// Another headphone; one whose files are all there, if there is one.
ParameterSet Beside(ParameterSet headphone) {
  constexpr ParameterSet kHeadphones[] = {
      ParameterSet::WiredStandard, ParameterSet::BluetoothStandard, ParameterSet::WiredPersonalized,
      ParameterSet::BluetoothPersonalized};
  const auto* const complete =
      std::find_if(std::begin(kHeadphones), std::end(kHeadphones),
                   [&](ParameterSet other) { return other != headphone && IsComplete(other); });
  if (complete != std::end(kHeadphones)) {
    return *complete;
  }
  return kHeadphones[headphone == kHeadphones[0] ? 1 : 0];
}

}  // namespace

effect_config_t StreamConfig() {
  buffer_config_t in{};
  in.samplingRate = kSampleRateHz;
  in.channels = AUDIO_CHANNEL_OUT_STEREO;
  in.format = AUDIO_FORMAT_PCM_FLOAT;
  in.accessMode = EFFECT_BUFFER_ACCESS_READ;
  in.mask = EFFECT_CONFIG_ALL;
  buffer_config_t out = in;
  out.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
  return {in, out};
}

std::unique_ptr<Instance> Instance::Make(const audio_effect_library_t& library, unsigned number) {
  constexpr int32_t kSession = 0, kOutput = 0;
  effect_handle_t handle = nullptr;
  if (library.create_effect(&kEffectUuid, kSession, kOutput, &handle) != 0) {
    return nullptr;
  }
  std::unique_ptr<Instance> instance;
  try {
    instance.reset(new Instance(library, handle, number));
  } catch (...) {
    library.release_effect(handle);
    throw;
  }
  return instance->Configure() ? std::move(instance) : nullptr;
}

// The record's type says nothing about blocking; the effect's process entry is declared not to.
Instance::Instance(const audio_effect_library_t& library, effect_handle_t handle, unsigned number)
    : library_(library),
      handle_(handle),
      process_(reinterpret_cast<ProcessEntry>((*handle)->process)),
      number_(number) {}

Instance::~Instance() { library_.release_effect(handle_); }

bool Instance::Configure() {
  const effect_config_t config = StreamConfig();
  if (!Command(EFFECT_CMD_SET_CONFIG, &config, sizeof(config)) ||
      !Command(EFFECT_CMD_ENABLE, nullptr, 0)) {
    return false;
  }
  // Where a capture is asked for, it has begun now; but what this instance plays is not what is
  // heard. A command without room for its reply is refused, and ends the capture all the same.
  if (PcmDump::RequestedSeconds() >= 1) {
    (*handle_)->command(handle_, EFFECT_CMD_DISABLE, 0, nullptr, nullptr, nullptr);
  }
  return true;
}

// The engine reads a file again only if its name changes, and the music upmix forgets its audio
// only when it is loaded. So another headphone is loaded first, and another mode's level. After a
// command that was refused nobody knows what runs.
bool Instance::Set(const Sound& sound) {
  const bool certain = std::exchange(certain_, false);
  bool accepted = SetMode(UpmixMode::Off);
  if (!certain || (sound_.mode == UpmixMode::Off && sound_.headphone)) {
    // Switching off ends the equalizer, but only where something was on.
    accepted = accepted && SetMode(UpmixMode::Music) && SetMode(UpmixMode::Off);
  }
  if (sound.headphone) {
    if (!certain || loaded_ == sound.headphone) {
      accepted = accepted && SetHeadphone(Beside(*sound.headphone));
    }
    accepted = accepted && SetHeadphone(*sound.headphone);
    loaded_ = sound.headphone;
  }
  if (sound.mode != UpmixMode::Off) {
    const bool music = sound.mode == UpmixMode::Music;
    if (IsComplete(music ? ParameterSet::CinemaLevel : ParameterSet::MusicLevel)) {
      accepted = accepted && SetMode(music ? UpmixMode::Cinema : UpmixMode::Music);
    }
    accepted = accepted && SetMode(sound.mode);
  }
  sound_ = sound;
  parked_ = sound.mode == UpmixMode::Off ? parked_ : 0;
  Flush();
  certain_ = accepted;
  return accepted && ReadReport() && Carries();
}

bool Instance::SetHeadphone(ParameterSet headphone) const {
  const auto [wired, personalized] = Of(headphone);
  return SetDevice(kNoDevice) &&
         SetParam(
             wired ? UpmixParam::WiredHrtf : UpmixParam::BluetoothHrtf,
             static_cast<uint32_t>(personalized ? HrtfType::Personalized : HrtfType::Standard)) &&
         SetDevice(wired ? AUDIO_DEVICE_OUT_WIRED_HEADPHONE : AUDIO_DEVICE_OUT_BLUETOOTH_A2DP);
}

// A stage that could not load its files is not in the chain: what comes out then is silence, what
// an old period left, again and again, or the input too early. A tuning may be very soft. The
// equalizer, which adds no latency, has no file in the report then. Not seen is a level control
// that the last flush here fails to set up: it passes its input on until the next one.
bool Instance::Carries() {
  if (sound_.plain()) {
    return true;
  }
  if (report_.find("[*] hpeq: ba=:") != std::string::npos) {
    return false;
  }
  if (sound_.mode == UpmixMode::Off) {
    return true;
  }
  constexpr float kImpulse = 1e-3f;  // too quiet for the level control
  constexpr float kLeast = 1e-5f * kImpulse, kOver = 4.0f;
  std::vector<float> period(kPeriodSamples);
  const auto loudest = [this](std::size_t first, std::size_t end) {
    const auto magnitude = [](float a, float b) { return std::max(a, std::fabs(b)); };
    return std::accumulate(output_ + kChannels * first, output_ + kChannels * end, 0.0f, magnitude);
  };
  Process(period.data());
  const float silence = loudest(0, kPeriodFrames);
  period[0] = period[1] = kImpulse;
  Process(period.data());
  const float early = loudest(0, kChainFrames - 1);
  const float response = loudest(kChainFrames - 1, kPeriodFrames);
  Flush();
  return response > std::max(kLeast, kOver * silence) && early < response;
}

void Instance::Park(int periods) {
  constexpr float kWhisper = 2e-3f;  // above the level control's gate, 54 dB below full scale
  std::vector<float> period(kPeriodSamples);
  if (sound_.mode == UpmixMode::Off && SetMode(UpmixMode::Music)) {
    sound_.mode = UpmixMode::Music;
  }
  for (; periods > 0 && parked_ < kParkPeriods; --periods, ++parked_) {
    for (float& sample : period) {
      whisper_ = 1664525 * whisper_ + 1013904223;  // Numerical Recipes' generator
      const float noise = static_cast<float>(whisper_ >> 8) / 0x1p23f - 1.0f;
      sample = parked_ < kPausePeriods ? 0.0f : kWhisper * noise;
    }
    Process(period.data());
  }
}

void Instance::Pause() {
  constexpr int kPeriods = 52;  // 1.1 s; one of a second ends a programme
  const float silence[kPeriodSamples] = {};
  for (int i = 0; i < kPeriods; ++i) {
    Process(silence);
  }
}

void Instance::Flush() {
  (*handle_)->command(handle_, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr);
  std::fill(std::begin(output_), std::end(output_), 0.0f);
}

void Instance::Process(const float* period) {
  std::size_t delay = 0;
  if (sound_.mode == UpmixMode::Off) {
    delay = kChannels * kChainFrames;
    std::copy_n(output_ + kPeriodSamples, delay, output_);
  }
  audio_buffer_t in{kPeriodFrames, {const_cast<float*>(period)}};  // which it does not write
  audio_buffer_t out{kPeriodFrames, {output_ + delay}};
  if (process_(handle_, &in, &out) != 0) {
    std::fill_n(output_ + delay, kPeriodSamples, 0.0f);
  }
}

bool Instance::Command(uint32_t code, const void* data, std::size_t bytes) const {
  char payload[std::max(kDeviceCommandBytes, sizeof(effect_config_t))] = {};
  if (bytes != 0) {
    std::memcpy(payload, data, bytes);
  }
  alignas(int32_t) char reply[kDeviceCommandBytes] = {};
  uint32_t reply_bytes = sizeof(int32_t);
  int32_t status = 0;
  if ((*handle_)->command(handle_, code, static_cast<uint32_t>(bytes), payload, &reply_bytes,
                          reply) != 0) {
    return false;
  }
  std::memcpy(&status, reply, sizeof(status));
  return status == 0;
}

bool Instance::SetParam(UpmixParam param, uint32_t value) const {
  const uint32_t words[] = {0, sizeof(param), sizeof(value), static_cast<uint32_t>(param), value};
  return Command(EFFECT_CMD_SET_PARAM, words, sizeof(words));
}

bool Instance::SetMode(UpmixMode mode) const {
  return SetParam(UpmixParam::Mode, static_cast<uint32_t>(mode));
}

bool Instance::SetDevice(uint32_t device) const {
  return Command(EFFECT_CMD_SET_DEVICE, &device, sizeof(device));
}

bool Instance::ReadReport() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return false;
  }
  int32_t descriptor = ends[1];
  (*handle_)->command(handle_, EFFECT_CMD_DUMP, sizeof(descriptor), &descriptor, nullptr, nullptr);
  close(ends[1]);
  char text[4096];
  const ssize_t bytes = read(ends[0], text, sizeof(text));
  close(ends[0]);
  report_.assign(text, static_cast<std::size_t>(std::max<ssize_t>(bytes, 0)));
  return bytes > 0;
}

}  // namespace kelda::changeover
