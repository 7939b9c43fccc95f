#include "changeover/session.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "changeover/worker.h"
#include "platform/data_directory.h"
#include "platform/log.h"

namespace kelda::changeover {
namespace {

// What the audio thread feeds at most before a crossfade, beside its own period.
constexpr uint64_t kCatchUpPeriods = 2;

// From the first part of the history, made as loud as the whole programme, the level control finds
// its level.
constexpr uint64_t kLeadPeriods = 118;  // 2.5 s

// How much of the programme the level control listens to, in the default tuning.
uint64_t WindowOf(UpmixMode mode) {
  return mode == UpmixMode::Cinema ? History::kLevels / 2 : History::kLevels;
}

// What is rolled in where no level control has to find its level and no speech is to be recognised:
// filters, rooms and equalizers.
constexpr uint64_t kShortPeriods = 24;  // 0.5 s

// A standby that waits for longer while its session gets no audio may serve another one.
constexpr auto kPatience = std::chrono::milliseconds(200);

}  // namespace

std::unique_ptr<Session> Session::Open(Worker* worker, SessionOptions options) noexcept try {
  std::unique_ptr<Session> session(new Session(worker, options));
  if (!worker->Add(session.get())) {
    return nullptr;
  }
  worker->Wake();  // to find that it has arrived
  return session;
} catch (const std::exception&) {
  return nullptr;
}

Session::Session(Worker* worker, SessionOptions options)
    : worker_(worker), options_(options), follows_(options.keep_warm) {
  turns_.reserve(kMostTurns);
  values_[static_cast<std::size_t>(Setting::Kind::WiredHrtf)] =
      static_cast<uint32_t>(outcome_.hrtf(AudioDeviceType::Wired));
  values_[static_cast<std::size_t>(Setting::Kind::BluetoothHrtf)] =
      static_cast<uint32_t>(outcome_.hrtf(AudioDeviceType::Bluetooth));
  heard_ = mixed_;
}

Session::~Session() { worker_->Remove(this); }

int Session::Set(const Setting& setting) noexcept try {
  {
    const std::lock_guard lock(mutex_);
    settings_.push_back(setting);
    arrived_ = false;
    if (const auto kind = static_cast<std::size_t>(setting.kind); kind < values_.size()) {
      values_[kind] = setting.value;
    }
  }
  worker_->Wake();
  return 0;
} catch (const std::exception&) {
  return -ENOMEM;
}

uint32_t Session::value(Setting::Kind kind) const noexcept {
  const std::lock_guard lock(mutex_);
  return values_[static_cast<std::size_t>(kind)];
}

void Session::Start() noexcept {
  const std::lock_guard lock(mutex_);
  Settle();
  started_ = true;
  Begin();
  const int32_t seconds = PcmDump::RequestedSeconds();
  if (seconds < 1) {
    return;
  }
  try {
    capture_ = std::make_unique<PcmDump>();
    if (capture_->Open(DataPath(PcmDump::GenerateFileName()), kChannels,
                       static_cast<uint32_t>(seconds)) == 0) {
      capture_.reset();
    }
  } catch (const std::exception&) {
    capture_.reset();
  }
}

void Session::Reset() noexcept {
  const std::lock_guard lock(mutex_);
  Settle();
  Begin();
}

void Session::Stop() noexcept {
  {
    const std::lock_guard lock(mutex_);
    Settle();
    started_ = false;
    capture_.reset();
  }
  worker_->Wake();
}

// No fade will end any more: what was about to be heard is live at once.
void Session::Settle() {
  const State state = state_.load(std::memory_order_acquire);
  if (state == State::Ready || state == State::Held || state == State::Fading) {
    settled_ = !fading_;
    fade_period_ = fading_ ? fade_period_ : standby_end_;
    std::swap(live_, standby_);
    state_.store(State::Done, std::memory_order_release);
  }
  fading_ = false;
}

void Session::Begin() {
  history_.Forget();
  ++stream_;  // last: a turn that began with what was forgotten is of the stream before
  live_->Flush();
  std::fill(std::begin(mixed_), std::end(mixed_), 0.0f);
  heard_ = mixed_;
  filled_ = 0;
}

// ---- The audio thread.

void Session::Process(const float* in, float* out, std::size_t frames) {
  const float* const played = out;
  for (std::size_t left = frames; left > 0;) {
    // A piece of input is taken before the same piece of output is written: they may be one buffer.
    const std::size_t piece = std::min(left, kPeriodFrames - filled_);
    std::copy_n(in, kChannels * piece, period_ + kChannels * filled_);
    // Of the last period one frame less is left than this one lacks.
    const bool full = filled_ + piece == kPeriodFrames;
    const std::size_t rest = full ? piece - 1 : piece;
    std::copy_n(heard_ + kChannels * (filled_ + 1), kChannels * rest, out);
    filled_ += piece;
    if (full) {
      RunPeriod();
      std::copy_n(heard_, kChannels, out + kChannels * rest);
      filled_ = 0;
    }
    in += kChannels * piece;
    out += kChannels * piece;
    left -= piece;
  }
  if (capture_ != nullptr && frames > 0) {
    capture_->Write(*played, static_cast<uint32_t>(frames));
  }
}

void Session::RunPeriod() {
  if (!fading_) {
    TakeReadyStandby();
  }
  history_.Publish(period_);
  live_->Process(period_);
  heard_ = live_->output();
  if (!fading_) {
    return;
  }
  standby_->Process(period_);
  worker_->crossfade_.Mix(live_->output(), standby_->output(), fade_frame_, kPeriodFrames, mixed_);
  heard_ = mixed_;
  fade_frame_ += kPeriodFrames;
  if (fade_frame_ >= Crossfade::kFrames) {
    fading_ = false;
    std::swap(live_, standby_);
    state_.store(State::Done, std::memory_order_release);
  }
}

void Session::TakeReadyStandby() {
  State state = State::Ready;
  if (state_.load(std::memory_order_relaxed) != State::Ready ||
      !state_.compare_exchange_strong(state, State::Fading, std::memory_order_acquire)) {
    return;
  }
  const uint64_t now = history_.count();
  if (now - standby_end_ > kCatchUpPeriods) {
    state_.store(State::Behind, std::memory_order_release);
    return;
  }
  for (uint64_t period = standby_end_; period < now; ++period) {
    history_.Read(period, mixed_);  // of which nothing is left to be heard
    standby_->Process(mixed_);
  }
  fade_period_ = now;
  fade_frame_ = 0;
  ++crossfades_;
  fading_ = true;
}

// ---- The worker.

Session::Next Session::Advance() noexcept try {
  switch (state_.load(std::memory_order_acquire)) {
    case State::Done:
      Retire();
      break;
    case State::Behind:
      next_ = standby_end_;
      state_.store(State::Idle, std::memory_order_relaxed);
      break;
    default:
      break;
  }
  TakeSettings();
  switch (state_.load(std::memory_order_relaxed)) {
    case State::Idle:
      return replays_ ? Repeat() : Pursue();
    case State::Ready:
      return turn_.sound != outcome_.sound() && !replays_ && Withdraw() ? Next::Now : Next::Soon;
    default:
      return Next::Soon;
  }
} catch (const std::exception&) {  // memory ran out; what was not done is tried again
  return Next::Soon;
}

void Session::TakeSettings() {
  if (taken_.empty()) {
    const std::lock_guard lock(mutex_);
    taken_.swap(settings_);
  }
  // In their order, and none is lost if one of them has to be tried again.
  while (!taken_.empty()) {
    outcome_.Follow(taken_.front());
    if (taken_.front().kind == Setting::Kind::ReloadTuning && options_.use_tuning) {
      options_.use_tuning(outcome_.tuning());  // where a list of applications is read next
    }
    taken_.erase(taken_.begin());
    failed_.reset();
    follows_ = options_.keep_warm;
  }
}

// Works towards the sound that is wanted, or keeps a standby that follows what plays.
Session::Next Session::Pursue() {
  const Sound wanted = outcome_.sound();
  const bool arrived = wanted == playing_ || wanted == failed_;
  if (arrived) {
    const std::lock_guard lock(mutex_);
    arrived_ = settings_.empty();
  }
  if (arrived && !follows_) {
    DropStandby();
    return Next::Rest;
  }
  if (!TakeStandby()) {
    return Next::Soon;
  }
  if (arrived && playing_.mode == UpmixMode::Off) {  // into off, and out of it, nothing is gained
    if (prepared_) {
      EndTurn(Turn::End::Dropped);
    }
    standby_->Park(kSlicePeriods);
    return standby_->parked() < Instance::kParkPeriods ? Next::Now : Next::Rest;
  }
  const Sound& sound = arrived ? playing_ : wanted;
  const bool current = prepared_ && turn_stream_ == stream_;
  if (!current || turn_.sound != sound || warm_ != arrived) {
    // A level control that followed the programme in the same mode, through the same ears, has
    // found its level.
    const Sound& before = standby_->sound();
    leveled_ = leveled_ || (prepared_ && next_ >= turn_.begun);
    const bool warm = leveled_ && (arrived || (current && warm_)) && standby_->parked() == 0 &&
                      before.mode == sound.mode && before.headphone == sound.headphone;
    warm_ = arrived;
    leveled_ = warm;
    if (!Prepare(sound, warm)) {
      return Next::Now;
    }
  }
  if (!Feed(history_.count(), kSlicePeriods)) {
    return Next::Now;
  }
  return arrived ? Next::Later : HandOver();
}

// Does what another session did, at the same periods.
Session::Next Session::Repeat() {
  if (replay_.empty()) {
    return Next::Rest;
  }
  const Turn turn = replay_.front();
  const uint64_t now = history_.count();
  if (turn.outcome == Turn::End::NoMemory) {
    replay_.pop_front();
    return Next::Now;
  }
  // What was heard by a crossfade was not ready before the start.
  if (now < turn.begun || (turn.outcome == Turn::End::Heard && !started())) {
    return Next::Rest;
  }
  if (!TakeStandby()) {
    return Next::Soon;
  }
  if (!prepared_) {
    standby_->Park(turn.parked - standby_->parked());
    turn_stream_ = stream_;
    if (!BeginTurn(turn)) {
      replay_.pop_front();
      return Next::Now;
    }
  }
  if (!Feed(std::min(turn.end, now), kSlicePeriods)) {
    if (!prepared_) {  // of periods that the history has not: no session had that turn
      replay_.pop_front();
    }
    return Next::Now;
  }
  if (now < turn.end) {
    return Next::Rest;
  }
  replay_.pop_front();
  if (turn.outcome == Turn::End::Dropped || turn.outcome == Turn::End::NotLoaded) {
    EndTurn(Turn::End::Dropped);
    return Next::Now;
  }
  return HandOver();
}

// Returns whether there is a standby.
bool Session::TakeStandby() {
  if (standby_ != nullptr) {
    return true;
  }
  Pool& pool = worker_->pool_;
  wants_instance_ = !pool.HasFree();
  if (wants_instance_ || (gave_way_ && started() && history_.count() == stalled_at_)) {
    return false;
  }
  gave_way_ = prepared_ = warm_ = leveled_ = false;
  standby_ = pool.Take();
  if (standby_ == nullptr) {
    turn_ = {};
    turn_.sound = outcome_.sound();
    turn_.begun = next_ = history_.count();
    failed_ = turn_.sound;
    follows_ = false;
    EndTurn(Turn::End::NoMemory);
  }
  return standby_ != nullptr;
}

bool Session::Prepare(const Sound& sound, bool warm) {
  const uint64_t stream = stream_.load();
  Turn turn;
  turn.sound = sound;
  turn.instance = standby_->number();
  turn.parked = standby_->parked();
  turn.begun = history_.count();
  const bool levels = sound.mode != UpmixMode::Off && !warm;
  const bool speech = sound.mode == UpmixMode::Cinema;
  const uint64_t most = levels || speech ? History::kRolledIn : kShortPeriods;
  turn.first = std::max(history_.begin(), turn.begun - std::min(turn.begun, most));
  const uint64_t last = std::max(turn.first, turn.begun - std::min(turn.begun, kShortPeriods));
  turn.lead_end = levels ? std::min(turn.first + kLeadPeriods, last) : turn.first;
  turn.lead_power = levels ? history_.ProgrammePower(WindowOf(sound.mode)) : 0.0f;
  turn_stream_ = stream;
  return BeginTurn(turn);
}

// Returns whether everything could be loaded.
bool Session::BeginTurn(const Turn& turn) {
  if (prepared_) {
    EndTurn(Turn::End::Dropped);
  }
  turn_ = turn;
  next_ = turn.first;
  // What passes everything on loads nothing.
  const bool tuned =
      turn.sound.plain() || !options_.use_tuning || options_.use_tuning(turn.sound.tuning);
  prepared_ = tuned && standby_->Set(turn.sound);
  turn_report_ = standby_->report();
  // It remembers another programme, or this one through other ears.
  if (prepared_ && turn.lead_end > turn.first && turn.parked < Instance::kPausePeriods) {
    standby_->Pause();
  }
  if (!prepared_) {
    EndTurn(Turn::End::NotLoaded);
    failed_ = turn.sound;
    follows_ = follows_ && turn.sound != playing_;
    DropStandby();
  }
  return prepared_;
}

void Session::EndTurn(Turn::End outcome) noexcept {
  turn_.outcome = outcome;
  turn_.end = outcome == Turn::End::Heard ? fade_period_ : next_;
  prepared_ = false;
  if (outcome == Turn::End::NotLoaded || outcome == Turn::End::NoMemory) {
    LogWarning(log_tag::kEffect, "The sound does not change to %s: %s", NameOf(turn_.sound).text,
               outcome == Turn::End::NoMemory ? "there is no memory"
                                              : "not all of its files could be loaded");
  }
  const std::lock_guard lock(mutex_);
  if (turns_.size() == kMostTurns) {
    turns_.erase(turns_.begin());
  }
  turns_.push_back(turn_);  // has the capacity
}

// Feeds the standby up to `periods` of the input, to period `end` at most. Returns whether it has
// all.
bool Session::Feed(uint64_t end, int periods) {
  float period[kPeriodSamples];
  for (; periods > 0 && next_ < end; --periods, ++next_) {
    if (!history_.Read(next_, period)) {
      EndTurn(Turn::End::Dropped);  // too late; it begins again
      return false;
    }
    if (next_ < turn_.lead_end) {
      const float gain = history_.GainTo(turn_.lead_power, next_);
      std::transform(period, period + kPeriodSamples, period,
                     [gain](float sample) { return gain * sample; });
    }
    standby_->Process(period);
  }
  return next_ == end;
}

Session::Next Session::HandOver() {
  {
    const std::lock_guard lock(mutex_);
    if (started_ && turn_stream_ == stream_) {
      standby_end_ = next_;
      ready_since_ = std::chrono::steady_clock::now();
      const bool never_heard = turn_.outcome == Turn::End::AtOnce;  // in the session repeated
      state_.store(never_heard ? State::Held : State::Ready, std::memory_order_release);
      return Next::Soon;
    }
    if (started_) {
      return Next::Now;  // it was started meanwhile: from its beginning
    }
    std::swap(live_, standby_);
    settled_ = true;
  }
  Retire();
  return Next::Now;
}

void Session::Retire() {
  const bool settled = std::exchange(settled_, false);
  EndTurn(settled ? Turn::End::AtOnce : Turn::End::Heard);
  playing_ = turn_.sound;
  warm_ = false;
  leveled_ = true;  // what was heard until now
  {
    const std::lock_guard lock(mutex_);
    live_report_.swap(turn_report_);
  }
  state_.store(State::Idle, std::memory_order_relaxed);
  if (!options_.keep_warm) {
    DropStandby();
  }
}

// Takes back a standby that is ready, unless the audio thread has taken it already.
bool Session::Withdraw() {
  const std::lock_guard lock(mutex_);
  State state = State::Ready;
  return state_.compare_exchange_strong(state, State::Idle, std::memory_order_acquire);
}

void Session::DropStandby() {
  if (prepared_) {
    EndTurn(Turn::End::Dropped);
  }
  if (standby_ != nullptr) {
    worker_->pool_.Return(std::exchange(standby_, nullptr));
  }
}

// Whether a standby that its audio thread does not take was given to the other sessions.
bool Session::GiveWay() {
  if (state_.load(std::memory_order_acquire) != State::Ready ||
      std::chrono::steady_clock::now() - ready_since_ < kPatience || !Withdraw()) {
    return false;
  }
  gave_way_ = true;
  stalled_at_ = history_.count();
  DropStandby();
  return true;
}

// Whether its audio has stopped within a crossfade, which keeps the standby until it goes on.
bool Session::StandsInAFade() {
  const auto now = std::chrono::steady_clock::now();
  const uint64_t count = history_.count();
  if (state_.load(std::memory_order_acquire) != State::Fading || count != stands_at_) {
    stands_at_ = count;
    stands_since_ = now;
  }
  return now - stands_since_ >= kPatience;
}

std::vector<Turn> Session::TakeTurns() noexcept try {
  std::vector<Turn> turns;
  turns.reserve(kMostTurns);
  const std::lock_guard lock(mutex_);
  turns.swap(turns_);
  return turns;
} catch (const std::exception&) {
  return {};
}

bool Session::started() const {
  const std::lock_guard lock(mutex_);
  return started_;
}

void Session::Replay(std::vector<Turn> turns) noexcept {
  replays_ = true;
  try {
    replay_.assign(turns.begin(), turns.end());
  } catch (const std::exception&) {
    replay_.clear();
  }
}

bool Session::arrived() const {
  const std::lock_guard lock(mutex_);
  return arrived_;
}

std::string Session::Report() const {
  const std::lock_guard lock(mutex_);
  return live_report_;
}

}  // namespace kelda::changeover
