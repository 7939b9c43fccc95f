#include "tools/audio/sndfile_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "tools/audio/stated_size.h"
#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

[[noreturn]] void RefuseSound(const std::filesystem::path& path, const std::string& reason) {
  throw Failure(ExitCode::kInput, path.string() + ": cannot be read: " + reason);
}

ChannelPlace PlaceOf(int channel) {
  switch (channel) {
    case SF_CHANNEL_MAP_LEFT:
    case SF_CHANNEL_MAP_FRONT_LEFT:
      return ChannelPlace::kLeft;
    case SF_CHANNEL_MAP_RIGHT:
    case SF_CHANNEL_MAP_FRONT_RIGHT:
      return ChannelPlace::kRight;
    case SF_CHANNEL_MAP_CENTER:
    case SF_CHANNEL_MAP_FRONT_CENTER:
      return ChannelPlace::kCentre;
    case SF_CHANNEL_MAP_LFE:
      return ChannelPlace::kLfe;
    case SF_CHANNEL_MAP_REAR_LEFT:
      return ChannelPlace::kBackLeft;
    case SF_CHANNEL_MAP_REAR_RIGHT:
      return ChannelPlace::kBackRight;
    case SF_CHANNEL_MAP_REAR_CENTER:
      return ChannelPlace::kBackCentre;
    case SF_CHANNEL_MAP_SIDE_LEFT:
      return ChannelPlace::kSideLeft;
    case SF_CHANNEL_MAP_SIDE_RIGHT:
      return ChannelPlace::kSideRight;
    default:
      return ChannelPlace::kOther;
  }
}

// Of formats with samples of one size; 0 of others.
int SampleBytes(int format) {
  switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
      return 1;
    case SF_FORMAT_PCM_16:
      return 2;
    case SF_FORMAT_PCM_24:
      return 3;
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
      return 4;
    case SF_FORMAT_DOUBLE:
      return 8;
    default:
      return 0;
  }
}

}  // namespace

SndfileStream::SndfileStream(const std::filesystem::path& path) {
  file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
  Take(path);
  if (info_.frames == 0 && LacksSize(path)) {
    RefuseSound(path, "its header was never completed.");
  }
  const uint64_t stated_bytes = static_cast<uint64_t>(info_.frames) * format_.channels *
                                static_cast<uint64_t>(SampleBytes(info_.format));
  constexpr sf_count_t kNoLength = SF_COUNT_MAX / 1000;  // what some headers without a size give
  if (info_.seekable == 0 && info_.frames == 0) {
    RefuseSound(path, "it states no length, and comes through a pipe; write it into a file first");
  }
  if (info_.seekable == 0 &&
      (info_.frames > kNoLength || (stated_bytes != 0 && IsPlaceholder(stated_bytes)))) {
    info_.frames = SF_COUNT_MAX;  // whoever wrote into the pipe did not know
  }
  container_fault_ = CutContainer(path);
}

SndfileStream::SndfileStream(const std::filesystem::path& path, const OggLink& link)
    : container_fault_(!link.complete ? "it was cut off: the end of its last Ogg stream is missing"
                       : link.lacks_pages ? "it is damaged: Ogg pages are missing"
                                          : ""),
      part_{std::unique_ptr<std::FILE, FileCloser>(std::fopen(path.c_str(), "rb")), link.begin,
            link.end} {
  if (part_.file == nullptr) {
    RefuseSound(path, std::strerror(errno));
  }
  SF_VIRTUAL_IO functions = PartFunctions();
  functions.seek(0, SEEK_SET, &part_);
  file_.reset(sf_open_virtual(&functions, SFM_READ, &info_, &part_));
  Take(path);
}

SF_VIRTUAL_IO SndfileStream::PartFunctions() {
  SF_VIRTUAL_IO functions{};
  functions.get_filelen = [](void* user) -> sf_count_t {
    const auto* const part = static_cast<Part*>(user);
    return part->end - part->begin;
  };
  functions.tell = [](void* user) -> sf_count_t {
    const auto* const part = static_cast<Part*>(user);
    return ftello(part->file.get()) - part->begin;
  };
  functions.seek = [](sf_count_t offset, int whence, void* user) -> sf_count_t {
    const auto* const part = static_cast<Part*>(user);
    const int64_t from = whence == SEEK_SET   ? part->begin
                         : whence == SEEK_END ? part->end
                                              : ftello(part->file.get());
    return fseeko(part->file.get(), from + offset, SEEK_SET) == 0
               ? ftello(part->file.get()) - part->begin
               : -1;
  };
  functions.read = [](void* data, sf_count_t bytes, void* user) -> sf_count_t {
    const auto* const part = static_cast<Part*>(user);
    const int64_t rest = part->end - ftello(part->file.get());
    return static_cast<sf_count_t>(
        std::fread(data, 1, static_cast<std::size_t>(std::clamp(rest, int64_t{0}, int64_t{bytes})),
                   part->file.get()));
  };
  functions.write = [](const void*, sf_count_t, void*) -> sf_count_t { return 0; };
  return functions;
}

void SndfileStream::Take(const std::filesystem::path& path) {
  if (file_ == nullptr) {
    RefuseSound(path, sf_strerror(nullptr));
  }
  format_.rate_hz = info_.samplerate;
  format_.channels = static_cast<std::size_t>(info_.channels);
  std::vector<int> map(format_.channels);
  if (sf_command(file_.get(), SFC_GET_CHANNEL_MAP_INFO, map.data(),
                 static_cast<int>(map.size() * sizeof(int))) == SF_TRUE) {
    std::transform(map.begin(), map.end(), std::back_inserter(format_.places), PlaceOf);
  } else {
    format_.places = UsualPlaces(format_.channels);
  }
}

// The length that libsndfile computes for an Ogg file may be wrong by some frames.
std::optional<int64_t> SndfileStream::frames() const {
  return info_.frames < SF_COUNT_MAX ? std::optional<int64_t>(info_.frames) : std::nullopt;
}

std::size_t SndfileStream::Read(float* interleaved, std::size_t frames) {
  const sf_count_t read = sf_readf_float(file_.get(), interleaved, static_cast<sf_count_t>(frames));
  frames_read_ += std::max<sf_count_t>(read, 0);
  return static_cast<std::size_t>(std::max<sf_count_t>(read, 0));
}

bool SndfileStream::Seek(int64_t frame) {
  if (info_.seekable == 0 || sf_seek(file_.get(), frame, SEEK_SET) != frame) {
    return false;
  }
  frames_read_ = frame;
  return true;
}

std::string SndfileStream::Fault() {
  if (!container_fault_.empty()) {
    return container_fault_;
  }
  if (part_.file == nullptr && frames() && frames_read_ < info_.frames) {
    return EndedEarly(frames_read_, info_.frames, info_.samplerate);
  }
  // What stands behind the sound, such as a tag, is no fault.
  const bool complete = part_.file == nullptr && frames() && frames_read_ == info_.frames;
  if (!complete && sf_error(file_.get()) != SF_ERR_NO_ERROR) {
    return std::string("it is damaged at its end: ") + sf_strerror(file_.get());
  }
  return "";
}

}  // namespace kelda::tools
