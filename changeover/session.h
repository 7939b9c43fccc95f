// A stream of audio through the effect, whose settings change without a click and without a stall.
//
//   settings ──► Session ──► Worker ──► standby, rolled in ──┐
//   blocks ────► Session ──► live instance ──────────────────┴─ crossfade ──► blocks
#ifndef KELDA_CHANGEOVER_SESSION_H_
#define KELDA_CHANGEOVER_SESSION_H_

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "changeover/history.h"
#include "changeover/instance.h"
#include "changeover/sound.h"
#include "diagnostics/pcm_dump.h"
#include "platform/nonblocking.h"

namespace kelda::changeover {

class Worker;

// What a standby was set to, what it was fed, and what became of it: all that a replay needs.
// Periods count from the session's first, through every start and reset; a crossfade begins with
// input frame kPeriodFrames * end, and takes Crossfade::kFrames.
struct Turn {
  enum class End {
    Heard,      // by a crossfade that began with period `end`
    AtOnce,     // became live while the session was stopped
    Dropped,    // another sound was wanted before it was heard
    NotLoaded,  // a file is missing or damaged: the old sound goes on
    NoMemory,   // no instance could be made: the old sound goes on
  };

  Sound sound;
  unsigned instance = 0;  // in the order in which they were made
  int parked = 0;         // Instance::parked() before it
  uint64_t begun = 0;     // periods processed when it was set
  // It was fed the input's periods [first, lead_end), each at the mean square lead_power unless
  // that is 0, then [lead_end, end) as they are.
  uint64_t first = 0, lead_end = 0, end = 0;
  float lead_power = 0;
  End outcome = End::Dropped;
};

struct SessionOptions {
  // The standby is kept ready for the next change, for a listener who turns knobs: faster, at twice
  // the load, and with an instance of its own. A change of mode or of ears takes as long as
  // without, because a level control has to find its level.
  bool keep_warm = false;
  // Called before an instance loads files for a sound whose Sound::tuning is this, for a host whose
  // tunings are in folders of their own. Returns false if that tuning cannot be had. Worker.
  std::function<bool(uint32_t tuning)> use_tuning{};
};

// States of a change; the atomic word is where audio thread and worker meet.
//
//   Idle ──worker──► Ready ──audio──► Fading ──audio──► Done ──worker──► Idle
//                    │  ▲ └──audio──► Behind ──worker──► Idle
//                    └──┴─worker: another sound is wanted now
//   Idle ──worker, in a replay──► Held ──stop or reset──► Done
//
//   state    live instance   standby
//   Idle     audio           worker
//   Ready    audio           audio, once it has made it Fading or Behind
//   Fading   audio           audio
//   Behind   audio           worker: more than two periods of input have come since
//   Held     audio           worker: was ready too late for the last periods before a stop
//   Done     audio           worker; they have changed roles
//
// Control calls come from any thread, one at a time, and only store what they are given, but for
// those that say otherwise. Process is called between Start and Stop; Start, Stop and Reset do not
// overlap it. Settings may.
//
//   auto worker = Worker::Make(library, Worker::Threads::Own);
//   auto session = Session::Open(worker.get(), {});
//   session->Set({Setting::Kind::Mode, static_cast<uint32_t>(UpmixMode::Music)});
//   session->Start();
//   session->Process(in, out, frames);  // frames of any number
class Session {
 public:
  // Of every sound, for blocks of any size.
  static constexpr std::size_t kLatencyFrames = kPeriodFrames - 1 + kChainFrames;

  // Off, no device, the HRTF types that the tuning names. Reads these, and may make an instance;
  // null if there is no memory for it, or the effect refuses. Several sessions may be opened and
  // closed at the same time. `worker` outlives it.
  static std::unique_ptr<Session> Open(Worker* worker, SessionOptions options) noexcept;
  // Waits for the worker's step: for a few milliseconds, or some 15 of a workstation where it loads
  // a sound.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The last setting wins, and what is heard follows within 200 ms. Values are valid ones. Returns
  // 0, or -ENOMEM with nothing changed.
  int Set(const Setting& setting) noexcept;

  // The value that was set last; at first 0, and for the HRTFs what the tuning names. `kind` is
  // Mode, Device, WiredHrtf or BluetoothHrtf.
  uint32_t value(Setting::Kind kind) const noexcept;

  // Start and Reset begin from silence: kLatencyFrames of zeros, then the sound. Nothing of the
  // audio before is heard, and a change that was on its way is complete. Start also begins a
  // capture where a property asks for one.
  void Start() noexcept;
  void Reset() noexcept;
  void Stop() noexcept;

  // Processes interleaved stereo; `in` and `out` may be the same. Audio.
  void Process(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING;

  // Periods processed. Any thread.
  uint64_t periods() const { return history_.count(); }

  // The effect's report of what plays, of when that was set. Any thread. Throws std::bad_alloc.
  std::string Report() const;

  // The turns that have ended since the last time, at most kMostTurns, the newest.
  std::vector<Turn> TakeTurns() noexcept;
  static constexpr std::size_t kMostTurns = 1024;

  // Whether a standby is ready or fades in, or its turn has not ended yet. Any thread.
  bool changing() const { return state_.load(std::memory_order_acquire) != State::Idle; }

  // Crossfades begun: where Process raises it, one began with the period that the block completed,
  // whose first frame is the one heard at that frame of the block. Audio.
  uint64_t crossfades() const KELDA_NONBLOCKING { return crossfades_; }

  // Whether what is heard is what was set last, or that could not be loaded: no crossfade is under
  // way or to come. Any thread.
  bool arrived() const;

  // From now on repeats the turns of another session's, as TakeTurns gave them, in the place of
  // settings, and after them stays as it is. The worker has no thread; Step is called before Start
  // and before each period of the same input.
  void Replay(std::vector<Turn> turns) noexcept;

 private:
  friend class Worker;

  // What the worker does at a time before it looks after other sessions: some two milliseconds.
  static constexpr int kSlicePeriods = 8;

  enum class State { Idle, Ready, Behind, Held, Fading, Done };
  // How soon the worker looks again; within the next period, where it only follows the audio.
  enum class Next { Rest, Later, Soon, Now };

  Session(Worker* worker, SessionOptions options);

  // Control.
  void Begin();
  void Settle();
  bool started() const;

  // Worker, which holds its own lock.
  Next Advance() noexcept;
  void TakeSettings();
  Next Pursue();
  Next Repeat();
  bool TakeStandby();
  bool Prepare(const Sound& sound, bool warm);
  bool BeginTurn(const Turn& turn);
  void EndTurn(Turn::End outcome) noexcept;
  bool Feed(uint64_t end, int periods);
  Next HandOver();
  void Retire();
  bool Withdraw();
  void DropStandby();
  bool GiveWay();
  bool StandsInAFade();

  // Audio.
  void RunPeriod();
  void TakeReadyStandby();

  Worker* const worker_;
  const SessionOptions options_;

  mutable std::mutex mutex_;  // control and worker
  std::vector<Setting> settings_;
  std::array<uint32_t, 4> values_{};  // by Setting::Kind
  std::vector<Turn> turns_;
  std::string live_report_;
  bool started_ = false;
  bool arrived_ = false;
  bool settled_ = false;  // the change that is Done was heard without a crossfade

  std::atomic<uint64_t> stream_{0};  // counts starts and resets

  // The worker's.
  std::vector<Setting> taken_;
  Outcome outcome_;
  Sound playing_;
  std::optional<Sound> failed_;  // is not tried again before another setting comes
  bool follows_;                 // a standby is kept warm, unless that failed, too
  bool replays_ = false;         // ... whatever is set, and after its last turn, too
  std::deque<Turn> replay_;
  bool prepared_ = false;  // the standby is set to turn_.sound
  bool warm_ = false;      // ... and follows what plays
  bool leveled_ = false;   // its level control has found the level of what it was set to
  Turn turn_;
  std::string turn_report_;
  uint64_t turn_stream_ = 0;
  uint64_t next_ = 0;  // period to be fed
  bool wants_instance_ = false;
  bool gave_way_ = false;
  uint64_t stalled_at_ = 0;  // periods when it gave way to another session
  uint64_t stands_at_ = 0;   // periods at stands_since_
  std::chrono::steady_clock::time_point ready_since_, stands_since_;

  // By state_.
  std::atomic<State> state_{State::Idle};
  Instance* standby_ = nullptr;
  uint64_t standby_end_ = 0;  // the standby was fed the periods below
  uint64_t fade_period_ = 0;

  // The audio thread's, while the session is started.
  Instance* live_ = nullptr;
  const float* heard_ = nullptr;  // of the last period
  std::size_t filled_ = 0;        // frames of the next period
  std::size_t fade_frame_ = 0;
  uint64_t crossfades_ = 0;
  bool fading_ = false;
  std::unique_ptr<PcmDump> capture_;
  alignas(64) float period_[kPeriodSamples] = {};
  alignas(64) float mixed_[kPeriodSamples] = {};
  History history_;
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_SESSION_H_
