#include "tools/render/door.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string>

#include "tools/core/failure.h"
#include "tools/framework/effect_session.h"
#include "tools/framework/frame_tracker.h"
#include "tools/framework/host_session.h"
#include "tools/framework/processor_latency.h"

namespace kelda::tools {
namespace {

class RecordDoor : public Door {
 public:
  explicit RecordDoor(const EffectLibrary& library)
      : library_(library), session_(library), tracker_(library) {}

  void Apply(const Setting& setting) override {
    tools::Apply(setting, &session_);
    tracker_.Apply(setting);
  }
  void Enable() override { session_.Enable(); }
  void Disable() override { session_.Disable(); }
  bool enabled() const override { return session_.enabled(); }
  const std::vector<int64_t>& Process(float* interleaved, std::size_t frames) override {
    session_.Process(interleaved, frames);
    return tracker_.Advance(frames);
  }
  int64_t LatencyFrames(const std::vector<Setting>& settings) const override {
    return MeasureProcessorLatency(library_, settings);
  }
  std::string Dump() override { return session_.Dump(); }

 private:
  const EffectLibrary& library_;
  EffectSession session_;
  FrameTracker tracker_;
};

// Its latency is always the same, whatever the settings and the blocks.
class HostDoor : public Door {
 public:
  HostDoor(const EffectLibrary& library, const LoggedRun& replay, Tunings* tunings)
      : session_(library, Options(tunings)), trims_(replay.trims) {
    if (!replay.turns.empty()) {
      session_.Replay(replay.turns);
    }
    std::copy_if(replay.turns.begin(), replay.turns.end(), std::back_inserter(to_hear_),
                 [](const Turn& turn) { return turn.outcome == Turn::End::Heard; });
  }

  void Apply(const Setting& setting) override {
    session_.Apply(setting);
    if (TouchesBuffering(setting)) {
      begin_ = frame_;
    }
  }
  void Enable() override {
    session_.Enable();
    begin_ = frame_;
  }
  void Disable() override { session_.Disable(); }
  bool enabled() const override { return session_.enabled(); }
  const std::vector<int64_t>& Process(float* interleaved, std::size_t frames) override {
    constexpr int64_t kGathered = kPeriodFrames - 1;
    session_.Process(interleaved, frames);
    CheckReplay();
    trimmed_ += tools::Apply(std::span(trims_).subspan(trimmed_), static_cast<uint64_t>(frame_),
                             interleaved, frames, &trim_);
    delivered_.resize(frames);
    for (int64_t& delivered : delivered_) {
      delivered = !session_.enabled()           ? frame_
                  : frame_ - begin_ < kGathered ? FrameTracker::kSilence
                                                : frame_ - kGathered;
      ++frame_;
    }
    return delivered_;
  }
  int64_t LatencyFrames(const std::vector<Setting>&) const override {
    return changeover::kChainFrames;
  }
  std::string Dump() override { return session_.Dump(); }

 private:
  using Turn = changeover::Turn;

  // Throws Failure (input) if the next crossfade of the log does not come as it did.
  void CheckReplay() {
    constexpr uint64_t kFadePeriods = 4;  // and one until the worker says so
    if (heard_ == to_hear_.size()) {
      return;
    }
    const auto check = [this](bool as_logged) {
      if (!as_logged) {
        throw Failure(ExitCode::kInput,
                      "the log's crossfade at frame " +
                          std::to_string(to_hear_[heard_].end * kPeriodFrames) +
                          " cannot be repeated; is the input the recording's, from its beginning?");
      }
    };
    for (const Turn& turn : session_.session().TakeTurns()) {
      if (heard_ < to_hear_.size() && turn.outcome == Turn::End::Heard) {
        check(turn.end == to_hear_[heard_].end && turn.sound == to_hear_[heard_].sound);
        ++heard_;
      }
    }
    check(heard_ == to_hear_.size() ||
          session_.session().periods() <= to_hear_[heard_].end + kFadePeriods);
  }

  static changeover::SessionOptions Options(Tunings* tunings) {
    if (tunings == nullptr) {
      return {};
    }
    return {.use_tuning = [tunings](uint32_t number) { return tunings->Use(number); }};
  }

  HostSession session_;
  std::vector<Turn> to_hear_;  // of the log, those that crossfade
  std::size_t heard_ = 0;      // of them
  const std::vector<TrimStep> trims_;
  std::size_t trimmed_ = 0;  // of them
  Trim trim_;
  int64_t frame_ = 0;
  int64_t begin_ = 0;  // frame at which the host began to gather
  std::vector<int64_t> delivered_;
};

}  // namespace

std::unique_ptr<Door> OpenDoor(const EffectLibrary& library, bool host, const LoggedRun& replay,
                               Tunings* tunings) {
  if (host) {
    return std::make_unique<HostDoor>(library, replay, tunings);
  }
  return std::make_unique<RecordDoor>(library);
}

}  // namespace kelda::tools
