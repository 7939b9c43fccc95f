#include "tools/audio/audio_source.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "tools/core/failure.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

constexpr size_t kConverterInputFrames = 4096;

}  // namespace

AudioSource::AudioSource(const std::filesystem::path& path) : path_(path) {
  const auto refuse = [&](const std::string& reason) {
    throw Failure(ExitCode::kInput, path.string() + ": cannot be read: " + reason);
  };
  file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
  if (file_ == nullptr) {
    refuse(sf_strerror(nullptr));
  }
  if (info_.channels > static_cast<int>(kChannels)) {
    refuse("it has " + std::to_string(info_.channels) + " channels (1 or 2 are taken)");
  }
  const double ratio = static_cast<double>(kSampleRateHz) / info_.samplerate;
  const bool length_known = info_.frames < SF_COUNT_MAX;
  if (info_.samplerate == static_cast<int>(kSampleRateHz)) {
    frames_ = length_known ? std::optional(info_.frames) : std::nullopt;
    return;
  }
  if (src_is_valid_ratio(ratio) == 0) {
    refuse("its sample rate is " + std::to_string(info_.samplerate) +
           " Hz (188 to 12288000 are taken)");
  }
  if (length_known) {
    frames_ = std::llround(static_cast<double>(info_.frames) * ratio);
  }
  converter_input_.resize(kConverterInputFrames * kChannels);
  int error = 0;
  converter_.reset(src_callback_new(FeedConverter, SRC_SINC_BEST_QUALITY,
                                    static_cast<int>(kChannels), &error, this));
  if (converter_ == nullptr) {
    refuse(src_strerror(error));
  }
}

size_t AudioSource::Read(float* stereo, size_t frames) {
  return converter_ == nullptr ? ReadAtFileRate(stereo, frames) : ReadConverted(stereo, frames);
}

size_t AudioSource::ReadAtFileRate(float* stereo, size_t frames) {
  float* destination = stereo;
  if (info_.channels == 1) {
    mono_.resize(frames);
    destination = mono_.data();
  }
  const sf_count_t read = sf_readf_float(file_.get(), destination, static_cast<sf_count_t>(frames));
  file_frames_read_ += read;
  const bool ended = read < static_cast<sf_count_t>(frames);
  if (sf_error(file_.get()) != SF_ERR_NO_ERROR ||
      (ended && info_.frames < SF_COUNT_MAX && file_frames_read_ < info_.frames)) {
    throw Failure(ExitCode::kInput, path_.string() + ": is damaged: it ends after " +
                                        std::to_string(file_frames_read_) + " of " +
                                        std::to_string(info_.frames) + " frames");
  }
  const auto count = static_cast<size_t>(read);
  if (info_.channels == 1) {
    for (size_t i = 0; i < count; ++i) {
      stereo[kChannels * i] = stereo[kChannels * i + 1] = mono_[i];
    }
  }
  return count;
}

// Called by the converter, through which no exception may pass.
long AudioSource::FeedConverter(void* source, float** data) {
  auto* const self = static_cast<AudioSource*>(source);
  *data = self->converter_input_.data();
  try {
    return static_cast<long>(self->ReadAtFileRate(*data, kConverterInputFrames));
  } catch (...) {
    self->converter_failure_ = std::current_exception();
    return 0;
  }
}

size_t AudioSource::ReadConverted(float* stereo, size_t frames) {
  if (frames_) {
    // The converter may end a frame early or late; the length is the exact one.
    frames =
        static_cast<size_t>(std::min(static_cast<int64_t>(frames), *frames_ - converted_frames_));
  }
  const double ratio = static_cast<double>(kSampleRateHz) / info_.samplerate;
  size_t count = 0;
  while (count < frames) {
    const long read = src_callback_read(converter_.get(), ratio, static_cast<long>(frames - count),
                                        stereo + kChannels * count);
    if (converter_failure_) {
      std::rethrow_exception(converter_failure_);
    }
    if (read <= 0) {
      if (src_error(converter_.get()) != 0) {
        throw Failure(ExitCode::kInput, path_.string() + ": cannot be converted to 48 kHz: " +
                                            src_strerror(src_error(converter_.get())));
      }
      break;
    }
    count += static_cast<size_t>(read);
  }
  if (frames_) {
    std::fill(stereo + kChannels * count, stereo + kChannels * frames, 0.0F);
    count = frames;
  }
  converted_frames_ += static_cast<int64_t>(count);
  return count;
}

}  // namespace kelda::tools
