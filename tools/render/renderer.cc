#include "tools/render/renderer.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>

#include "tools/audio/audio_sink.h"
#include "tools/audio/audio_source.h"
#include "tools/audio/loudness_meter.h"
#include "tools/audio/progress.h"
#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/framework/effect_session.h"
#include "tools/render/door.h"
#include "tools/render/realigner.h"
#include "tools/render/stage_watch.h"

namespace kelda::tools {
namespace {

// The settings of the processors when the first block comes.
std::vector<Setting> SettingsAtStart(const RenderJob& job) {
  std::vector<Setting> settings = job.settings;
  for (const TimedSetting& change : job.timeline) {
    if (change.frame == 0) {
      settings.push_back(change.setting);
    }
  }
  return settings;
}

class Renderer {
 public:
  Renderer(const EffectLibrary& library, const RenderJob& job)
      : job_(job),
        source_(job.input),
        sink_(job.output, source_.stated_frames()),
        door_(OpenDoor(library, job.host, job.replay, job.tunings)),
        watch_(library),
        sizes_(job.block, job.seed) {}

  RenderResult Run() {
    const auto start = std::chrono::steady_clock::now();
    for (const Setting& setting : job_.settings) {
      Change(setting);
    }
    door_->Enable();
    latency_frames_ = door_->LatencyFrames(SettingsAtStart(job_));
    realigner_ = Realigner(latency_frames_);
    Progress progress(source_.stated_frames());
    while (!Complete()) {
      CheckInterruption();
      ApplyDueChanges();
      RunBlock(sizes_.Next());
      progress.Update(input_frames_);
    }
    RenderResult result;
    if (job_.dump) {
      result.dump = door_->Dump();
    }
    if (door_->enabled()) {
      door_->Disable();
    }
    CheckInterruption();
    sink_.Finish();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    result.seconds = elapsed.count();
    result.frames = input_frames_;
    result.input = input_meter_.Finish();
    result.input.not_finite = source_.not_finite();
    result.output = output_meter_.Finish();
    result.history = watch_.history();
    result.notes = source_.notes();
    result.input_fault = source_.fault();
    result.clipped_samples = sink_.clipped_samples();
    result.unreached.assign(next_change_, job_.timeline.end());
    return result;
  }

 private:
  void Change(const Setting& setting) {
    door_->Apply(setting);
    watch_.Follow(setting, input_frames_);
  }

  void ApplyDueChanges() {
    for (; !input_ended_ && next_change_ != job_.timeline.end() &&
           next_change_->frame <= input_frames_;
         ++next_change_) {
      try {
        Change(next_change_->setting);
      } catch (const Failure& failure) {
        throw Failure(failure.code(), next_change_->origin + ": " + failure.what());
      }
    }
  }

  // One host block; silence follows the end of the input.
  void RunBlock(std::size_t frames) {
    block_.resize(frames * kChannels);
    const std::size_t read = input_ended_ ? 0 : source_.Read(block_.data(), frames);
    std::fill(block_.begin() + static_cast<std::ptrdiff_t>(read * kChannels), block_.end(), 0.0f);
    input_frames_ += static_cast<int64_t>(read);
    input_ended_ = input_ended_ || source_.AtEnd();
    input_meter_.Add(block_.data(), read);
    if (input_frames_ == 0) {
      return;
    }
    const std::vector<int64_t>& delivered = door_->Process(block_.data(), frames);
    if (job_.raw_timing) {
      Write(block_.data(), frames);
    } else {
      aligned_.clear();
      realigner_.Push(block_.data(), delivered, &aligned_);
      std::size_t wanted = aligned_.size() / kChannels;
      if (input_ended_) {
        wanted = std::min(wanted, static_cast<std::size_t>(input_frames_ - written_frames_));
      }
      Write(aligned_.data(), wanted);
    }
    NoteDelivery(delivered);
  }

  void Write(const float* stereo, std::size_t frames) {
    sink_.Write(stereo, frames);
    output_meter_.Add(stereo, frames);
    written_frames_ += static_cast<int64_t>(frames);
  }

  // Ends the wait for the last frames if the effect stops delivering.
  void NoteDelivery(const std::vector<int64_t>& delivered) {
    constexpr int64_t kPatienceFrames = int64_t{10} * kSampleRateHz;
    const int64_t last = *std::max_element(delivered.begin(), delivered.end());
    silent_frames_ = last < 0 ? silent_frames_ + static_cast<int64_t>(delivered.size()) : 0;
    delivered_frames_ = std::max(delivered_frames_, last + 1);
    if (silent_frames_ > kPatienceFrames + static_cast<int64_t>(kMaxBlockFrames)) {
      throw Failure(ExitCode::kRefused, "the effect delivers no audio any more");
    }
  }

  bool Complete() const {
    return input_ended_ &&
           (input_frames_ == 0 || delivered_frames_ >= input_frames_ + latency_frames_);
  }

  const RenderJob& job_;
  AudioSource source_;
  AudioSink sink_;
  std::unique_ptr<Door> door_;
  StageWatch watch_;
  LoudnessMeter input_meter_;
  LoudnessMeter output_meter_;
  int64_t latency_frames_ = 0;
  Realigner realigner_{0};
  BlockSizes sizes_;
  std::vector<TimedSetting>::const_iterator next_change_ = job_.timeline.begin();
  int64_t input_frames_ = 0;
  bool input_ended_ = false;
  int64_t written_frames_ = 0;
  int64_t delivered_frames_ = 0;  // one past the newest input frame that came out
  int64_t silent_frames_ = 0;     // delivered in a row
  std::vector<float> block_;
  std::vector<float> aligned_;
};

}  // namespace

RenderResult Render(const EffectLibrary& library, const RenderJob& job) {
  return Renderer(library, job).Run();
}

}  // namespace kelda::tools
