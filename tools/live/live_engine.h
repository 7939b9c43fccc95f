// The effect, heard live.
//
//   data thread:     blocks ──► LiveEngine::Process ──► blocks, and both to every tap
//   worker's thread: rolls in the next sound
//   other threads:   LiveEngine::Set, State; one of them calls Poll now and then
#ifndef KELDA_TOOLS_LIVE_LIVE_ENGINE_H_
#define KELDA_TOOLS_LIVE_LIVE_ENGINE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "changeover/session.h"
#include "changeover/sound.h"
#include "changeover/worker.h"
#include "platform/audio_format.h"
#include "platform/nonblocking.h"
#include "tools/framework/effect_library.h"
#include "tools/framework/setting.h"
#include "tools/live/cycle_meter.h"
#include "tools/live/frame_ring.h"
#include "tools/live/live_audio.h"
#include "tools/replay/trim.h"
#include "tools/replay/tunings.h"
#include "tools/replay/turn_log.h"

namespace kelda::tools {

struct LiveOptions {
  std::vector<Setting> settings;  // what is heard from the first frame on, in their order
  bool keep_warm = false;         // changes are heard sooner, for twice the load
};

// What goes in and comes out, for one reader on a thread of its own. Frames of four samples, in and
// out, in the order of the stream; there is room for ten seconds of them.
struct LiveTap {
  FrameRing frames{std::size_t{10} * kSampleRateHz, 2 * kChannels};
  std::atomic<uint64_t> lost{0};  // frames that there was no room for
};

// The largest samples since they were asked for last; 1 is full scale.
struct Peaks {
  float in = 0, out = 0;
};

struct LiveState {
  uint64_t frames = 0;    // processed
  std::string plays;      // "music, wired"
  bool changing = false;  // another sound is on its way
  double trim_db = 0;     // of what is heard, or going to be heard by the fade that runs
  std::string trouble;    // why the last change was not heard; empty if it was
  CycleFigures cycles;
};

// Owns the host's session with its worker. Its stream goes on through every pause of the audio:
// blocks of any size, at any time.
class LiveEngine : public LiveAudio {
 public:
  // Loads the first sound before it returns. `library`, `tunings`, and `log` if there is one,
  // outlive this object. Throws Failure (refused).
  LiveEngine(const EffectLibrary& library, Tunings* tunings, const LiveOptions& options,
             TurnLog* log = nullptr);
  // After the last block: the log gets what was heard of a last change.
  ~LiveEngine() override;
  LiveEngine(const LiveEngine&) = delete;
  LiveEngine& operator=(const LiveEngine&) = delete;

  // Mode, device, HRTF, application, list of applications: heard by a crossfade within 200 ms.
  // Throws Failure: (usage) for another key, (refused) without memory, with nothing changed. Any
  // thread, as all but Process.
  void Set(const Setting& setting);

  // Another tuning, or the same, whose files are others now: heard as a setting is. If it cannot be
  // loaded, the old one goes on, and LiveState::trouble says so. With a log, what is heard is a
  // copy that is made before this returns; else the files must stay until it is heard. Throws
  // Failure: (usage) if it is no directory, (input) if a log cannot copy it, (refused) without
  // memory, with nothing changed.
  void SetTuning(const std::filesystem::path& directory);

  // The gain after the effect: -60 to 12 dB. It follows the settings that were made before: where
  // they change the sound, it changes with the crossfade that begins next, frame for frame, and not
  // at all if they cannot be loaded. Else it fades at once, as long as a crossfade. The last one
  // counts. Throws Failure (usage).
  void SetTrim(double gain_db);

  // A remark for the log.
  void Note(const std::string& text);

  // Writes what happened to the log, and lets a trim no longer wait for a change that is none.
  // Called a few times a second.
  void Poll();

  LiveState State() const;
  Peaks TakePeaks();
  // What the effect says of the instance that is heard.
  std::string Report() const { return session_->Report(); }
  // Before the first block; the tap lives as long as this object. Throws std::bad_alloc.
  LiveTap& AddTap() { return *taps_.emplace_back(std::make_unique<LiveTap>()); }

  // Interleaved stereo; `in` and `out` may be the same. Audio.
  void Process(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING override;
  CycleMeter& cycles() override { return cycles_; }

 private:
  void SetLocked(const Setting& setting);
  void TakeTurns();
  bool ChangeIsDue();
  void WishTrim(float gain, bool at_once);
  void Log(const auto& add);
  void TrimOutput(float* out, std::size_t frames, uint64_t frame) KELDA_NONBLOCKING;
  void FillTaps(const float* in, const float* out, std::size_t frames) KELDA_NONBLOCKING;

  Tunings* const tunings_;
  const std::unique_ptr<changeover::Worker> worker_;
  std::unique_ptr<changeover::Session> session_;

  mutable std::mutex mutex_;  // all but the audio thread
  TurnLog* log_;              // null also after it failed
  changeover::Sound playing_;
  float trim_gain_ = 1;  // that the last step leads to
  uint32_t trim_wishes_ = 0;
  std::string trouble_;

  // A wish for a gain, packed into a word; the audio thread tells when its step began.
  std::atomic<uint64_t> trim_wish_{0};
  Ring<TrimStep> trim_steps_;
  // The audio thread's.
  Trim trim_;
  uint64_t trim_taken_ = 0;  // of trim_wish_
  uint64_t crossfades_ = 0;

  std::vector<std::unique_ptr<LiveTap>> taps_;
  std::atomic<uint64_t> frames_{0};
  std::atomic<float> peak_in_{0}, peak_out_{0};
  CycleMeter cycles_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_LIVE_ENGINE_H_
