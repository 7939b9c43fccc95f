// The effect as an instance of the platform's AIDL effect service, without anything of the
// platform: what android.hardware.audio.effect.IEffect asks of an effect, in plain types. The skin
// of a platform translates to and from these and moves the blocks.
//
//   Common, parameters ──► Session ──► changeover::Session ──► changes without a click
//   blocks ──► rate converter ──► changeover::Session ──► rate converter ──► blocks
#ifndef KELDA_HAL_SESSION_H_
#define KELDA_HAL_SESSION_H_

#include <hardware/audio_effect.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "changeover/worker.h"
#include "hal/devices.h"
#include "platform/nonblocking.h"

namespace kelda::hal {

// Whether queries name the effect: only where the property vendor.kelda.effect is 1. Without it an
// instance that is made all the same cannot be opened. Any thread.
bool Offered() noexcept;

// The worker of the process, with a thread of its own, made with the first caller's `library` and
// ended when the last holder lets go of it. Null if there is no memory or no thread. `library`
// outlives it. Any thread.
std::shared_ptr<changeover::Worker> SharedWorker(const audio_effect_library_t& library) noexcept;

// The states of IEffect, with its values.
//
//   Init ──Open──► Idle ──Start──► Processing ──Stop──► Draining ──audio──► Idle ──Close──► Init
//                                      └──Stop without draining, Reset──► Idle
enum class State : int8_t { Init = 0, Idle = 1, Processing = 2, Draining = 3 };

// The commands of IEffect, with their values.
enum class Command : int32_t { Start = 0, Stop = 1, Reset = 2 };

// How a control call ended. After all but Ok everything is as before.
enum class Status {
  Ok,
  IllegalState,     // EX_ILLEGAL_STATE
  IllegalArgument,  // EX_ILLEGAL_ARGUMENT: a value that the effect does not take
  Unsupported,      // EX_UNSUPPORTED_OPERATION: no memory, or the property is not set
};

// One side of the stream. Both have the same rate and mask; frame counts may differ.
struct AudioConfig {
  int32_t sample_rate_hz = 48000;  // of kSampleRatesHz
  uint32_t channel_mask = 3;       // a layout mask: any two positions. Other layouts: 0, refused
  bool is_float = true;            // 32-bit float PCM; anything else is refused
  int64_t frame_count = 0;         // of the data queue, at least 1

  bool operator==(const AudioConfig&) const = default;
};

// Parameter.Common.
struct Common {
  int32_t session = 0;
  int32_t io_handle = 0;
  AudioConfig input, output;

  bool operator==(const Common&) const = default;
};

// Parameter.VolumeStereo.
struct Volume {
  float left = 0;
  float right = 0;

  bool operator==(const Volume&) const = default;
};

// How a block ended: IEffect.Status. Samples are floats, two a frame.
struct BlockResult {
  int32_t status = 0;  // 0, -EINVAL or -ENODATA: STATUS_OK, _BAD_VALUE, _NOT_ENOUGH_DATA
  int32_t consumed = 0;
  int32_t produced = 0;

  bool operator==(const BlockResult&) const = default;
};

// The rates that a session takes. The effect runs at 48000 Hz; at the others the audio is
// converted to it and back.
inline constexpr int32_t kSampleRatesHz[] = {44100, 48000, 88200, 96000, 176400, 192000};

struct SessionOptions {
  // Stop leads to Draining, where the sound goes over to the unprocessed input within 50 ms. For
  // interface version 3; without it Stop leads to Idle at once.
  bool drains = false;
};

// Control calls come from any thread, one at a time. Open, Close, SetCommon and Do do not overlap
// Process; the others may, and only store what they are given. None of those waits for files.
//
//   Session session(SharedWorker(AUDIO_EFFECT_LIBRARY_INFO_SYM), {});
//   session.Open(common);
//   session.Do(Command::Start);
//   session.Process(block, block, 2 * frames);
class Session {
 public:
  // In Init. `worker` may be null: then Open is refused.
  Session(std::shared_ptr<changeover::Worker> worker, SessionOptions options) noexcept;
  // In any state. This, Open and Close wait for the worker's step, in which it may load a sound:
  // some 15 ms on a workstation.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // To Idle: mode off, no device, the HRTF types that the tuning names, whatever was set before
  // Close. In any other state than Init it does nothing and is Ok. IllegalArgument for a `common`
  // that SetCommon refuses; Unsupported.
  Status Open(const Common& common) noexcept;

  // To Init, and gives up everything. Ok in Init. IllegalState in Processing.
  Status Close() noexcept;

  // Whether the data queues may be made anew: IllegalState in Init. The stream goes on; no frame
  // is lost or added, whatever the queues' new size.
  Status Reopen() const noexcept;

  // IllegalState in Init. Start begins from silence; in Processing it does nothing, in Draining the
  // sound comes back from the unprocessed input. Stop and Reset do nothing in Idle. Reset also ends
  // Draining at once.
  Status Do(Command command) noexcept;

  // Any thread.
  State state() const noexcept { return state_.load(std::memory_order_acquire); }

  // Refuses with IllegalArgument sides that differ in rate or mask, a rate that is not in
  // kSampleRatesHz, other formats than two channels of float, and queues of no frames. With another
  // rate the audio begins anew from silence; with anything else that changes it goes on. In any
  // state but Init. Unsupported.
  Status SetCommon(const Common& common) noexcept;

  // IllegalState in Init. Lists of inputs only are kept, and change no sound. What plays follows
  // the others within 200 ms. Unsupported.
  Status SetDevices(std::span<const DeviceDescription> devices) noexcept;

  // Kept for the getters; they change no sound. `mode` and `source` are the interface's AudioMode
  // and AudioSource. The descriptor declares no volume control, so the framework applies volumes
  // itself. IllegalState in Init.
  Status SetAudioMode(int32_t mode) noexcept;
  Status SetAudioSource(int32_t source) noexcept;
  Status SetVolume(Volume volume) noexcept;

  // What was set last; before that no devices, mode and source 0 (normal, default) and no volume.
  // Nothing in Init. devices() throws std::bad_alloc.
  std::optional<Common> common() const noexcept;
  std::optional<std::vector<DeviceDescription>> devices() const;
  std::optional<int32_t> audio_mode() const noexcept;
  std::optional<int32_t> audio_source() const noexcept;
  std::optional<Volume> volume() const noexcept;

  // One of the effect's own parameters: the bytes of an effect_param_t with identifier and value,
  // as EFFECT_CMD_SET_PARAM carries them, of any alignment; bytes beyond them are ignored.
  // IllegalArgument if they are cut short, or the value has the wrong size. An unknown parameter
  // and a value out of range are ignored, with a warning in the log, and Ok, as at the other door.
  // What plays follows within 200 ms. IllegalState in Init; Unsupported.
  Status SetParameter(std::span<const uint8_t> bytes) noexcept;

  // The answer to the bytes of an effect_param_t with an identifier, as EFFECT_CMD_GET_PARAM gives
  // it: 20 bytes for the mode, 16 with no value for any other parameter. IllegalArgument if they
  // are cut short, or leave less room (vsize) than the value takes. IllegalState in Init;
  // Unsupported. `answer` is as before unless Ok.
  Status GetParameter(std::span<const uint8_t> id, std::vector<uint8_t>* answer) noexcept;

  // Processes interleaved stereo of any number of frames; `in` and `out` may be the same. Ok gives
  // as many samples as it takes. Otherwise it takes and writes nothing: -EINVAL for half a frame or
  // a missing buffer, -ENODATA in Init and Idle. Audio.
  BlockResult Process(const float* in, float* out, std::size_t samples) noexcept KELDA_NONBLOCKING;

  // From the input to the output, in frames of the stream's rate: the same for every sound and
  // every block size. 0 in Init.
  std::size_t latency_frames() const noexcept;
  // Of a stream of one of kSampleRatesHz.
  static std::size_t LatencyFrames(int32_t sample_rate_hz) noexcept;

  // What plays, for a dump. Throws std::bad_alloc. Control.
  std::string Report() const;

 private:
  struct Rate;

  // Control.
  void Begin();
  void End();
  Status Store(const changeover::Setting& setting);
  template <typename Value>
  Status Keep(Value value, Value* kept) noexcept;
  template <typename Value>
  std::optional<Value> WhenOpen(const Value& value) const;

  // Audio.
  void Play(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING;
  void Drain(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING;

  const std::shared_ptr<changeover::Worker> worker_;
  const SessionOptions options_;
  std::atomic<State> state_{State::Init};

  // Null in Init.
  std::unique_ptr<changeover::Session> host_;
  std::unique_ptr<Rate> rate_;

  Common common_;
  std::vector<DeviceDescription> devices_;
  int32_t audio_mode_ = 0, audio_source_ = 0;
  Volume volume_;

  // The audio thread's, while the session processes or drains.
  std::size_t dry_ = 0;  // frames of the way to the unprocessed input
  float dry_input_[512] = {};
};

}  // namespace kelda::hal

#endif  // KELDA_HAL_SESSION_H_
