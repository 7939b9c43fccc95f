#include "tools/audio/audio_source.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "tools/audio/sndfile_stream.h"
#include "tools/core/failure.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {

AudioSource::AudioSource(const std::filesystem::path& path) : path_(path), links_(OggLinks(path)) {
  // An Ogg file that libsndfile cannot read, such as a film, is opened like any other file.
  try {
    OpenNext();
  } catch (const Failure&) {
    links_.clear();
  }
  if (links_.empty()) {
    Use(OpenSound(path));
  }
  if (const auto frames = stream_->frames(); frames && links_.size() <= 1) {
    stated_frames_ =
        std::llround(static_cast<double>(*frames) * kSampleRateHz / stream_->format().rate_hz);
  }
}

void AudioSource::OpenNext() {
  stream_.reset();
  if (next_link_ < links_.size()) {
    Use(std::make_unique<SndfileStream>(path_, links_[next_link_++]));
  }
}

void AudioSource::Use(std::unique_ptr<SoundStream> stream) {
  const SoundFormat& format = stream->format();
  if (!RateConverter::Takes(format.rate_hz, kSampleRateHz)) {
    throw Failure(ExitCode::kInput, path_.string() + ": cannot be read: its sample rate is " +
                                        std::to_string(format.rate_hz) +
                                        " Hz (188 to 12288000 are taken)");
  }
  fold_.emplace(format, path_.string());
  if (!fold_->note().empty() &&
      std::find(notes_.begin(), notes_.end(), fold_->note()) == notes_.end()) {
    notes_.push_back(fold_->note());
  }
  converter_.reset();
  if (format.rate_hz != static_cast<int>(kSampleRateHz)) {
    converter_.emplace(format.rate_hz, kSampleRateHz);
  }
  stream_ = std::move(stream);
}

void AudioSource::Refill() {
  constexpr std::size_t kFrames = 4096;
  decoded_.resize(kFrames * stream_->format().channels);
  const std::size_t frames = stream_->Read(decoded_.data(), kFrames);
  decoded_.resize(frames * stream_->format().channels);
  for (float& sample : decoded_) {
    if (!std::isfinite(sample)) {
      sample = 0;
      ++not_finite_;
    }
  }
  folded_.resize(frames * kChannels);
  fold_->Fold(decoded_.data(), frames, folded_.data());
  ready_.clear();
  next_ready_ = 0;
  if (converter_) {
    converter_->Push(folded_.data(), frames, &ready_);
  } else {
    ready_.swap(folded_);
  }
  if (frames == kFrames) {
    return;
  }
  if (converter_) {
    converter_->Finish(&ready_);
  }
  if (std::string fault = stream_->Fault(); !fault.empty()) {
    fault_ = std::move(fault);
  }
  try {
    OpenNext();
  } catch (const Failure& failure) {
    const std::string reason = failure.what();  // begins with the path
    fault_ = "a later part of it " + reason.substr(path_.string().size() + 2);
  }
}

void AudioSource::Skip(int64_t frames) {
  const int64_t skipped =
      std::llround(static_cast<double>(frames) * stream_->format().rate_hz / kSampleRateHz);
  if (links_.size() <= 1 && stream_->Seek(skipped)) {
    return;
  }
  float stereo[kChannels * 1024];
  while (frames > 0) {
    const std::size_t read = Read(
        stereo, static_cast<std::size_t>(std::min<int64_t>(frames, std::size(stereo) / kChannels)));
    if (read == 0) {
      return;
    }
    frames -= static_cast<int64_t>(read);
  }
}

bool AudioSource::AtEnd() {
  while (next_ready_ == ready_.size() && stream_ != nullptr) {
    Refill();
  }
  return next_ready_ == ready_.size();
}

std::size_t AudioSource::Read(float* stereo, std::size_t frames) {
  std::size_t done = 0;
  while (done < frames && !AtEnd()) {
    const std::size_t count = std::min(frames - done, (ready_.size() - next_ready_) / kChannels);
    std::copy_n(ready_.begin() + static_cast<std::ptrdiff_t>(next_ready_), count * kChannels,
                stereo + kChannels * done);
    next_ready_ += count * kChannels;
    done += count;
  }
  return done;
}

}  // namespace kelda::tools
