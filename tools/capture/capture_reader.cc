#include "tools/capture/capture_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "tools/core/failure.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kHeadBytes = std::size_t{1} << 18;
constexpr std::size_t kReadFrames = 16 * CaptureLayout::kPlaneFrames;  // whole groups of any layout

[[noreturn]] void Refuse(const std::filesystem::path& path, const std::string& reason) {
  throw Failure(ExitCode::kInput, path.string() + ": cannot be read: " + reason);
}

// No capture begins with one of these, read as a 32-bit float.
constexpr struct {
  std::string_view begins;
  const char* what;
} kAudioFormats[] = {
    {"RIFF", "a WAV file"},  {"RF64", "a WAV file"},  {"FORM", "an AIFF file"},
    {"OggS", "an Ogg file"}, {"fLaC", "a FLAC file"}, {"ID3", "an MP3 file"},
};

void RefuseAudioFile(const std::filesystem::path& path, std::span<const std::byte> head) {
  const std::string_view bytes(reinterpret_cast<const char*>(head.data()), head.size());
  for (const auto& format : kAudioFormats) {
    if (bytes.starts_with(format.begins)) {
      const std::string name = path.string();
      std::string message = name + ": ";
      message.append(format.what).append(" (it begins with '").append(format.begins);
      message.append("'), not a raw capture. 'kelda render' takes audio files; 'ffmpeg -i ");
      message.append(name).append(" -f f32le -ar 48000 OUT.pcm' makes raw samples of one");
      throw Failure(ExitCode::kInput, message);
    }
  }
}

std::size_t FrameBytes(const CaptureLayout& layout) {
  return static_cast<std::size_t>(layout.channels) * sizeof(float);
}

// How many whole frames `bytes` bytes hold. Only the last group may be cut off; its whole frames
// are those that its last plane has.
std::size_t WholeFrames(const CaptureLayout& layout, std::size_t bytes) {
  if (!layout.planar) {
    return bytes / FrameBytes(layout);
  }
  const std::size_t plane_bytes = CaptureLayout::kPlaneFrames * sizeof(float);
  const std::size_t group_bytes = CaptureLayout::kPlaneFrames * FrameBytes(layout);
  const std::size_t rest = bytes % group_bytes;
  const std::size_t ahead = group_bytes - plane_bytes;
  return bytes / group_bytes * CaptureLayout::kPlaneFrames +
         (rest > ahead ? (rest - ahead) / sizeof(float) : 0);
}

}  // namespace

CaptureReader::CaptureReader(const std::filesystem::path& path)
    : path_(path), file_(std::fopen(path.c_str(), "rb")) {
  struct stat status {};
  if (file_ == nullptr || fstat(fileno(file_.get()), &status) != 0) {
    Refuse(path_, std::strerror(errno));
  }
  if (S_ISDIR(status.st_mode)) {
    Refuse(path_, "it is a directory");
  }
  if (S_ISCHR(status.st_mode)) {
    Refuse(path_, "it is a device, neither a file nor a pipe");  // it may have no end
  }
  if (S_ISREG(status.st_mode)) {
    size_bytes_ = status.st_size;
  }
  std::vector<std::byte> bytes(kHeadBytes);
  bytes.resize(ReadBytes(bytes));
  RefuseAudioFile(path_, bytes);
  head_.resize(bytes.size() / sizeof(float));
  if (!head_.empty()) {
    std::memcpy(head_.data(), bytes.data(), head_.size() * sizeof(float));
  }
  head_bytes_ = std::move(bytes);
}

std::optional<int64_t> CaptureReader::ExpectedFrames(const CaptureLayout& layout) const {
  if (!size_bytes_) {
    return std::nullopt;
  }
  return static_cast<int64_t>(WholeFrames(layout, static_cast<std::size_t>(*size_bytes_)));
}

std::size_t CaptureReader::ReadBytes(std::span<std::byte> bytes) {
  const std::size_t from_head = std::min(bytes.size(), head_bytes_.size() - head_used_);
  std::copy_n(head_bytes_.begin() + static_cast<std::ptrdiff_t>(head_used_), from_head,
              bytes.begin());
  head_used_ += from_head;
  const auto rest = bytes.subspan(from_head);
  const std::size_t from_file = std::fread(rest.data(), 1, rest.size(), file_.get());
  if (std::ferror(file_.get()) != 0) {
    Refuse(path_, std::strerror(errno));
  }
  return from_head + from_file;
}

void CaptureReader::Read(const CaptureLayout& layout, std::vector<float>* interleaved) {
  const auto channels = static_cast<std::size_t>(layout.channels);
  std::vector<std::byte> bytes(kReadFrames * FrameBytes(layout));
  bytes.resize(ReadBytes(bytes));
  const std::size_t frames = WholeFrames(layout, bytes.size());
  trailing_bytes_ = bytes.size() - frames * FrameBytes(layout);
  interleaved->resize(frames * channels);
  const auto copy = [&](std::size_t to, std::size_t from) {
    std::memcpy(&(*interleaved)[to], &bytes[from * sizeof(float)], sizeof(float));
  };
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const std::size_t group = frame / layout.group_frames() * layout.group_frames();
    for (std::size_t channel = 0; channel < channels; ++channel) {
      copy(frame * channels + channel,
           group * channels + channel * layout.group_frames() + (frame - group));
    }
  }
}

}  // namespace kelda::tools
