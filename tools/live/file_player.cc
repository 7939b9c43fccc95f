#include "tools/live/file_player.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <utility>

#include "tools/audio/audio_source.h"
#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/status_line.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kRingFrames = std::size_t{2} * kSampleRateHz;
constexpr std::size_t kFadeFrames = 480;
constexpr std::size_t kPieceFrames = 1024;

// Played after the end, so that the last frame has left the effect and the server.
constexpr uint64_t kTailFrames = kSampleRateHz / 2;

// How long the decoder sleeps while the ring is full.
constexpr auto kDecoderLook = std::chrono::milliseconds(20);

}  // namespace

FilePlayer::FilePlayer(LiveEngine* engine, std::vector<std::filesystem::path> files)
    : engine_(engine), files_(std::move(files)), ring_(kRingFrames, kChannels) {
  const SignalsHeldBack held_back;
  thread_ = std::thread(&FilePlayer::Decode, this);
}

FilePlayer::~FilePlayer() {
  {
    const std::lock_guard lock(mutex_);  // or the decoder may miss it, just before it waits
    ending_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

// ---- Control.

void FilePlayer::TogglePause() { paused_ = !paused_; }

void FilePlayer::SeekBy(double seconds) {
  const PlayPosition now = position();
  const int64_t last = now.total_frames.value_or(INT64_MAX);
  LeapTo(now.file, std::clamp<int64_t>(now.frame + std::llround(seconds * kSampleRateHz), 0, last));
}

void FilePlayer::Skip(std::ptrdiff_t files) {
  const auto now = static_cast<std::ptrdiff_t>(position().file);
  const auto last = static_cast<std::ptrdiff_t>(files_.size()) - 1;
  const std::ptrdiff_t step = files < 0 ? -1 : 1;
  std::ptrdiff_t file = std::clamp<std::ptrdiff_t>(now + files, 0, last);
  {
    const std::lock_guard lock(mutex_);
    while (file != now && unreadable_.count(static_cast<std::size_t>(file)) > 0) {
      file = file + step < 0 || file + step > last ? now : file + step;
    }
  }
  LeapTo(static_cast<std::size_t>(file), 0);
}

std::size_t FilePlayer::failed() const {
  const std::lock_guard lock(mutex_);
  return failed_.size();
}

void FilePlayer::LeapTo(std::size_t file, int64_t frame) {
  {
    const std::lock_guard lock(mutex_);
    leap_file_ = file;
    leap_frame_ = frame;
    complete_ = false;
    ++leap_;
  }
  wake_.notify_all();
}

FilePlayer::Segment FilePlayer::Now() const {
  Segment now;
  for (const Segment& segment : segments_) {
    if (segment.begin <= popped_) {
      now = segment;
    }
  }
  return now;
}

PlayPosition FilePlayer::position() const {
  const std::lock_guard lock(mutex_);
  const bool over = complete_ && tail_ >= kTailFrames;
  if (leap_ != emptied_) {  // where it will be in a moment
    return {leap_file_, leap_frame_, Now().total, paused_, false};
  }
  const Segment now = Now();
  return {now.file, now.from + static_cast<int64_t>(popped_ - now.begin), now.total, paused_, over};
}

// ---- The decoder.

void FilePlayer::Decode() {
  std::size_t file = 0;
  int64_t from = 0;
  while (!ending_) {
    while (file < files_.size() && DecodeFile(file, from)) {
      ++file;
      from = 0;
    }
    std::unique_lock lock(mutex_);
    if (!Leaves()) {
      complete_ = true;
      wake_.wait(lock, [this] { return Leaves(); });
    }
    leapt_ = leap_.load();
    file = leap_file_;
    from = leap_frame_;
    // The data thread empties the ring once it has faded out.
    while (!ending_ && leap_ == leapt_ && emptied_ != leapt_) {
      wake_.wait_for(lock, kDecoderLook);
    }
  }
}

void FilePlayer::Fail(std::size_t file, bool readable, const std::string& why) {
  const std::lock_guard lock(mutex_);
  if (!readable) {
    unreadable_.insert(file);
  }
  if (failed_.insert(file).second) {
    ShowMessage(why);
  }
}

// Returns whether the next file follows.
bool FilePlayer::DecodeFile(std::size_t file, int64_t from) {
  const std::string name = files_[file].string();
  try {
    AudioSource source(files_[file]);
    float frames[kChannels * kPieceFrames];
    if (from > 0) {
      source.Skip(from);
    }
    {
      const std::lock_guard lock(mutex_);
      segments_.push_back({ring_.pushed(), file, from, source.stated_frames()});
    }
    for (const std::string& note : source.notes()) {
      ShowMessage(std::string(name).append(": ").append(note));
    }
    while (const std::size_t read = Leaves() ? 0 : source.Read(frames, kPieceFrames)) {
      if (!Push(frames, read)) {
        return false;
      }
    }
    if (!Leaves() && !source.fault().empty()) {
      Fail(file, true, "warning: " + name + ": " + source.fault());
    }
  } catch (const Interrupted&) {
    return false;
  } catch (const Failure& failure) {
    Fail(file, false, failure.what());
  } catch (const std::exception& error) {
    Fail(file, false, name + ": " + error.what());
  }
  return !Leaves();
}

// Waits for room. Returns whether everything was pushed.
bool FilePlayer::Push(const float* frames, std::size_t count) {
  while (count > 0) {
    const std::size_t pushed = ring_.Push(frames, count);
    frames += kChannels * pushed;
    count -= pushed;
    std::unique_lock lock(mutex_);
    // What was played, but for where it is now.
    while (segments_.size() > 1 && segments_[1].begin <= popped_) {
      segments_.pop_front();
    }
    if (count > 0) {
      wake_.wait_for(lock, kDecoderLook);
    }
    if (Leaves()) {
      return false;
    }
  }
  return true;
}

// ---- The data thread.

void FilePlayer::Process(const float*, float* out, std::size_t frames) {
  constexpr std::size_t kMost = 256;
  for (std::size_t done = 0; done < frames; done += kMost) {
    const std::size_t piece = std::min(frames - done, kMost);
    Fill(out + kChannels * done, piece);
    engine_->Process(out + kChannels * done, out + kChannels * done, piece);
  }
}

void FilePlayer::Fill(float* out, std::size_t frames) {
  const uint64_t leap = leap_.load(std::memory_order_acquire);
  const bool complete = complete_.load(std::memory_order_acquire);
  const std::size_t ready = ring_.ready();
  // While the decoder is late it fades, too, as long as there is something to fade.
  const bool plays = !paused_.load(std::memory_order_relaxed) &&
                     leap == emptied_.load(std::memory_order_relaxed) &&
                     (complete || ready >= frames + kFadeFrames);
  const std::size_t wanted = plays ? frames : std::min(frames, gain_);
  const std::size_t popped = ring_.Pop(out, wanted);
  for (std::size_t i = 0; i < popped; ++i) {
    gain_ = plays ? std::min(gain_ + 1, kFadeFrames) : gain_ - 1;
    const float gain = static_cast<float>(gain_) / static_cast<float>(kFadeFrames);
    out[kChannels * i] *= gain;
    out[kChannels * i + 1] *= gain;
  }
  std::fill(out + kChannels * popped, out + kChannels * frames, 0.0f);
  gain_ = popped < wanted ? 0 : gain_;  // there was nothing left to fade
  uint64_t gone = popped;
  if (gain_ == 0 && leap != emptied_.load(std::memory_order_relaxed) &&
      leap == leapt_.load(std::memory_order_acquire)) {
    gone += ring_.Drop();
    emptied_.store(leap, std::memory_order_release);
  }
  popped_.store(popped_.load(std::memory_order_relaxed) + gone, std::memory_order_release);
  const bool ended = complete && ring_.ready() == 0;
  tail_.store(ended ? tail_.load(std::memory_order_relaxed) + frames : 0,
              std::memory_order_relaxed);
}

}  // namespace kelda::tools
