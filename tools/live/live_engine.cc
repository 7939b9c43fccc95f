#include "tools/live/live_engine.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <span>
#include <thread>
#include <utility>

#include "tools/core/decibels.h"
#include "tools/core/failure.h"
#include "tools/core/format.h"
#include "tools/core/interruption.h"
#include "tools/core/status_line.h"
#include "tools/framework/host_session.h"
#include "tools/framework/installation.h"

namespace kelda::tools {
namespace {

using changeover::Session;
using changeover::Turn;
using changeover::Worker;

// What is kept of the input while its buffer is reused.
constexpr std::size_t kPiece = 256;

// Trims that begin between two calls of Poll. One more begins later.
constexpr std::size_t kTrimSteps = 64;

// How long the worker may take, which other programs hold up.
constexpr auto kPatience = std::chrono::seconds(10);
constexpr auto kLook = std::chrono::milliseconds(2);

// Waits until `done`; returns whether it was.
bool WaitFor(const auto& done) {
  for (const auto end = std::chrono::steady_clock::now() + kPatience;
       std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(kLook)) {
    if (done()) {
      return true;
    }
  }
  return done();
}

// In lanes, so that no maximum waits for the one before.
float Peak(const float* samples, std::size_t count, float peak) KELDA_NONBLOCKING {
  constexpr std::size_t kLanes = 16;
  float lanes[kLanes] = {peak};
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      const float magnitude = std::fabs(samples[i + lane]);
      lanes[lane] = magnitude > lanes[lane] ? magnitude : lanes[lane];
    }
  }
  for (; i < count; ++i) {
    lanes[0] = std::max(lanes[0], std::fabs(samples[i]));
  }
  return *std::max_element(std::begin(lanes), std::end(lanes));
}

// A gain that the control thread wishes for, in a word that is not 0.
struct TrimWish {
  float gain;
  bool at_once;  // else with the next crossfade

  TrimWish(float new_gain, bool now) : gain(new_gain), at_once(now) {}
  explicit TrimWish(uint64_t word) KELDA_NONBLOCKING
      : gain(std::bit_cast<float>(static_cast<uint32_t>(word))),
        at_once((word >> kAtOnceBit & 1) != 0) {}
  // `number` tells wishes with the same gain apart.
  uint64_t Packed(uint32_t number) const {
    return std::bit_cast<uint32_t>(gain) | uint64_t{at_once} << kAtOnceBit |
           uint64_t{number} << (kAtOnceBit + 1);
  }

 private:
  static constexpr unsigned kAtOnceBit = 32;
};

std::unique_ptr<Worker> StartWorker(const EffectLibrary& library) {
  const SignalsHeldBack held_back;
  return Worker::Make(library.info(), Worker::Threads::Own);
}

}  // namespace

LiveEngine::LiveEngine(const EffectLibrary& library, Tunings* tunings, const LiveOptions& options,
                       TurnLog* log)
    : tunings_(tunings),
      worker_(StartWorker(library)),
      session_(worker_ == nullptr ? nullptr
                                  : Session::Open(worker_.get(), {.keep_warm = options.keep_warm,
                                                                  .use_tuning =
                                                                      [tunings](uint32_t number) {
                                                                        return tunings->Use(number);
                                                                      }})),
      log_(log),
      trim_steps_(kTrimSteps) {
  if (session_ == nullptr) {
    throw Failure(ExitCode::kRefused,
                  "the effect refused to be created; property vendor.kelda.effect must be 1");
  }
  const std::lock_guard lock(mutex_);
  // Before the start a sound is live as soon as it is loaded: nothing has to fade.
  for (const Setting& setting : options.settings) {
    SetLocked(setting);
  }
  WaitFor([this] { return !ChangeIsDue(); });
  session_->Start();
}

void LiveEngine::Set(const Setting& setting) {
  const std::lock_guard lock(mutex_);
  SetLocked(setting);
}

void LiveEngine::SetLocked(const Setting& setting) {
  const auto host_setting = HostSetting(setting);
  if (!host_setting) {
    throw Failure(ExitCode::kUsage, "not while it plays: " + ToText(setting));
  }
  if (session_->Set(*host_setting) != 0) {
    throw Failure(ExitCode::kRefused, "there is no memory for a setting");
  }
  trouble_.clear();
  Log([&] { log_->Add(frames_, setting); });
}

void LiveEngine::SetTuning(const std::filesystem::path& directory) {
  const std::lock_guard lock(mutex_);
  std::filesystem::path kept = directory;
  CheckTuningDirectory(directory);
  Log([&] {
    log_->Keep(directory);
    kept = log_->kept();
  });
  tunings_->Add(kept);
  if (session_->Set({changeover::Setting::Kind::ReloadTuning}) != 0) {
    tunings_->RemoveLast();
    throw Failure(ExitCode::kRefused, "there is no memory for a setting");
  }
  trouble_.clear();
  Log([&] { log_->AddTuning(frames_, directory); });
}

// Whether a crossfade is under way or to come. What has ended is known then.
bool LiveEngine::ChangeIsDue() {
  const bool arrived = session_->arrived();
  TakeTurns();
  return !arrived;
}

void LiveEngine::SetTrim(double gain_db) {
  constexpr double kLeastDb = -60, kMostDb = 12, kDecade = 20;
  if (!(gain_db >= kLeastDb && gain_db <= kMostDb)) {
    throw Failure(ExitCode::kUsage, Format("a trim is -60 to 12 dB, not %g", gain_db));
  }
  const std::lock_guard lock(mutex_);
  const auto gain = static_cast<float>(std::pow(10.0, gain_db / kDecade));
  const bool due = ChangeIsDue();
  if (due || trouble_.empty()) {  // else what it belongs to could not be loaded
    WishTrim(gain, !due);
  }
}

void LiveEngine::WishTrim(float gain, bool at_once) {
  ++trim_wishes_;
  trim_wish_ = TrimWish{gain, at_once}.Packed(trim_wishes_);
}

void LiveEngine::Note(const std::string& text) {
  const std::lock_guard lock(mutex_);
  Log([&] { log_->AddNote(frames_, text); });
}

void LiveEngine::Poll() {
  const std::lock_guard lock(mutex_);
  if (!ChangeIsDue() && trim_wish_ != 0) {
    const TrimWish wish(trim_wish_);
    if (!wish.at_once && wish.gain != trim_gain_) {
      WishTrim(wish.gain, true);
    }
  }
}

LiveEngine::~LiveEngine() {
  const std::lock_guard lock(mutex_);
  TakeTurns();
  session_->Stop();
  // A crossfade that had begun belongs to what was heard.
  WaitFor([this] { return !session_->changing(); });
  for (const Turn& turn : session_->TakeTurns()) {
    if (turn.outcome != Turn::End::AtOnce) {  // what became live at the stop was never heard
      Log([&] { log_->Add(turn); });
    }
  }
}

void LiveEngine::TakeTurns() {
  for (TrimStep step; trim_steps_.Pop(&step, 1) == 1;) {
    trim_gain_ = step.gain;
    Log([&] { log_->Add(step); });
  }
  for (const Turn& turn : session_->TakeTurns()) {
    const std::string name = changeover::NameOf(turn.sound).text;
    switch (turn.outcome) {
      case Turn::End::Heard:
      case Turn::End::AtOnce:
        playing_ = turn.sound;
        trouble_.clear();
        break;
      case Turn::End::NotLoaded:
        trouble_ = "no change to " + name + ": not all of its files could be loaded";
        trim_wish_ = 0;
        break;
      case Turn::End::NoMemory:
        trouble_ = "no change to " + name + ": there is no memory";
        trim_wish_ = 0;
        break;
      case Turn::End::Dropped:
        break;
    }
    Log([&] { log_->Add(turn); });
  }
}

// A disk that is full ends the log, not the sound.
void LiveEngine::Log(const auto& add) {
  if (log_ == nullptr) {
    return;
  }
  try {
    add();
  } catch (const Failure& failure) {
    if (failure.code() == ExitCode::kInput) {
      throw;
    }
    log_ = nullptr;
    ShowMessage(std::string("warning: the log ends: ") + failure.what());
  }
}

LiveState LiveEngine::State() const {
  const std::lock_guard lock(mutex_);
  return {frames_,
          changeover::NameOf(playing_).text,
          !session_->arrived(),
          ToDb(trim_gain_),
          trouble_,
          cycles_.figures()};
}

Peaks LiveEngine::TakePeaks() { return {peak_in_.exchange(0), peak_out_.exchange(0)}; }

// ---- The audio thread.

void LiveEngine::Process(const float* in, float* out, std::size_t frames) {
  float kept[kChannels * kPiece];
  float peak_in = peak_in_.load(std::memory_order_relaxed);
  float peak_out = peak_out_.load(std::memory_order_relaxed);
  for (std::size_t done = 0; done < frames; done += kPiece) {
    const std::size_t piece = std::min(frames - done, kPiece);
    std::copy_n(in + kChannels * done, kChannels * piece, kept);
    session_->Process(kept, out + kChannels * done, piece);
    TrimOutput(out + kChannels * done, piece, frames_.load(std::memory_order_relaxed) + done);
    peak_in = Peak(kept, kChannels * piece, peak_in);
    peak_out = Peak(out + kChannels * done, kChannels * piece, peak_out);
    FillTaps(kept, out + kChannels * done, piece);
  }
  peak_in_.store(peak_in, std::memory_order_relaxed);
  peak_out_.store(peak_out, std::memory_order_relaxed);
  frames_.store(frames_.load(std::memory_order_relaxed) + frames, std::memory_order_relaxed);
}

void LiveEngine::TrimOutput(float* out, std::size_t frames, uint64_t frame) {
  const uint64_t word = trim_wish_.load(std::memory_order_acquire);
  const uint64_t crossfades = session_->crossfades();
  const bool fades = std::exchange(crossfades_, crossfades) != crossfades;
  const TrimWish wish(word);
  if (word == 0 || word == trim_taken_ || !(wish.at_once || fades)) {
    return trim_.Apply(out, frames);
  }
  // A crossfade is heard from the frame on that completed its period.
  const TrimStep step{wish.at_once ? frame : frame - frame % kPeriodFrames + kPeriodFrames - 1,
                      wish.gain};
  const bool told = trim_steps_.Push(&step, 1) == 1;
  trim_taken_ = told ? word : trim_taken_;
  Apply(std::span(&step, told ? 1 : 0), frame, out, frames, &trim_);
}

void LiveEngine::FillTaps(const float* in, const float* out, std::size_t frames) {
  if (taps_.empty()) {
    return;
  }
  float both[2 * kChannels * kPiece];
  for (std::size_t i = 0; i < frames; ++i) {
    std::copy_n(in + kChannels * i, kChannels, both + 2 * kChannels * i);
    std::copy_n(out + kChannels * i, kChannels, both + 2 * kChannels * i + kChannels);
  }
  for (const std::unique_ptr<LiveTap>& tap : taps_) {
    const std::size_t pushed = tap->frames.Push(both, frames);
    tap->lost.fetch_add(frames - pushed, std::memory_order_relaxed);
  }
}

}  // namespace kelda::tools
