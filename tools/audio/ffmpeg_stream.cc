#include "tools/audio/ffmpeg_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/core/interruption.h"

namespace kelda::tools {
namespace {

static_assert(std::endian::native == std::endian::little, "WAV files are");

constexpr uint16_t kExtensible = 0xFFFE;

template <typename Value>
Value ValueAt(const std::string& bytes, std::size_t offset) {
  Value value;
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

// The places that the bits of a WAV file's channel mask stand for, from the lowest.
std::vector<ChannelPlace> MaskPlaces(uint32_t mask) {
  using Place = ChannelPlace;
  constexpr std::array kPlaces{Place::kLeft,     Place::kRight,    Place::kCentre,
                               Place::kLfe,      Place::kBackLeft, Place::kBackRight,
                               Place::kOther,    Place::kOther,    Place::kBackCentre,
                               Place::kSideLeft, Place::kSideRight};
  std::vector<Place> places;
  for (std::size_t bit = 0; bit < 32; ++bit) {
    if ((mask >> bit & 1) != 0) {
      places.push_back(bit < kPlaces.size() ? kPlaces[bit] : Place::kOther);
    }
  }
  return places;
}

}  // namespace

std::unique_ptr<FfmpegStream> FfmpegStream::Open(const std::filesystem::path& path) {
  std::unique_ptr<FfmpegStream> stream(new FfmpegStream);
  if (!stream->Start(path) || !stream->AnySound()) {
    return nullptr;
  }
  stream->ReadHeader();
  return stream;
}

FfmpegStream::~FfmpegStream() {
  if (sound_ >= 0) {
    close(sound_);
  }
  if (process_ >= 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
}

bool FfmpegStream::Start(const std::filesystem::path& path) {
  path_ = path;
  messages_.reset(std::tmpfile());
  int ends[2];
  if (messages_ == nullptr || pipe2(ends, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot start ffmpeg");
  }
  sound_ = ends[0];
  const std::string input = "file:" + std::filesystem::absolute(path).string();
  const char* const arguments[] = {
      "ffmpeg",    "-nostdin", "-hide_banner", "-v",     "error", "-protocol_whitelist",
      "file",      "-i",       input.c_str(),  "-map",   "0:a:0", "-c:a",
      "pcm_f32le", "-f",       "wav",          "pipe:1", nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(messages_.get()), STDERR_FILENO);
  // These signals end ffmpeg, for instance when its pipe is closed, although this process ignores
  // them.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t ignored_here;
  sigemptyset(&ignored_here);
  sigaddset(&ignored_here, SIGPIPE);
  sigaddset(&ignored_here, SIGXFSZ);
  posix_spawnattr_setsigdefault(&attributes, &ignored_here);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const int error = posix_spawnp(&process_, arguments[0], &actions, &attributes,
                                 const_cast<char* const*>(arguments), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) {
    process_ = -1;
  }
  return error == 0;
}

bool FfmpegStream::MoreComes() {
  pollfd end{sound_, POLLIN, 0};
  while (poll(&end, 1, -1) < 0 && errno == EINTR) {
    CheckInterruption();
  }
  return (end.revents & POLLIN) != 0;
}

// False only if ffmpeg is not installed. Where posix_spawnp cannot report that, the child ends with
// this status (POSIX); so it does under qemu-user.
bool FfmpegStream::AnySound() {
  constexpr int kNotFound = 127;
  if (MoreComes()) {
    return true;
  }
  Wait();
  return !WIFEXITED(status_) || WEXITSTATUS(status_) != kNotFound;
}

// "RIFF", a size and "WAVE"; then chunks, each a name, a size and what it holds. The sound is the
// last and goes on to the end of the pipe, whatever its size says.
void FfmpegStream::ReadHeader() {
  const auto read = [&](std::size_t bytes) {
    constexpr std::size_t kMostBytes = std::size_t{1} << 20;
    std::string text(bytes, '\0');
    if (bytes > kMostBytes || ReadBytes(text.data(), bytes) != bytes) {
      Wait();
      const std::string messages = Messages();
      throw Failure(ExitCode::kInput, path_.string() + ": cannot be read: ffmpeg: " +
                                          (messages.empty() ? "no sound came" : messages));
    }
    return text;
  };
  read(12);
  for (;;) {
    const std::string head = read(8);
    if (head.starts_with("data")) {
      // It may have opened the file and can decode nothing of it.
      if (!MoreComes()) {
        throw Failure(ExitCode::kInput, path_.string() + ": cannot be read: " + Fault());
      }
      return;
    }
    const auto size = ValueAt<uint32_t>(head, 4);
    const std::string chunk = read(size + size % 2);
    if (head.starts_with("fmt ") && size >= 16) {
      format_.channels = ValueAt<uint16_t>(chunk, 2);
      format_.rate_hz = ValueAt<int32_t>(chunk, 4);
      format_.places = ValueAt<uint16_t>(chunk, 0) == kExtensible && size >= 40
                           ? MaskPlaces(ValueAt<uint32_t>(chunk, 20))
                           : UsualPlaces(format_.channels);
    }
  }
}

std::size_t FfmpegStream::ReadBytes(void* data, std::size_t bytes) {
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t count = read(sound_, static_cast<char*>(data) + done, bytes - done);
    if (count < 0 && errno == EINTR) {
      CheckInterruption();
      continue;
    }
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::size_t FfmpegStream::Read(float* interleaved, std::size_t frames) {
  const std::size_t frame_bytes = sizeof(float) * format_.channels;
  const std::size_t read = ReadBytes(interleaved, frames * frame_bytes) / frame_bytes;
  has_sound_ = has_sound_ || read > 0;
  return read;
}

void FfmpegStream::Wait() {
  while (process_ >= 0 && waitpid(process_, &status_, 0) < 0 && errno == EINTR) {
    CheckInterruption();
  }
  process_ = -1;
}

// What ffmpeg printed, as one line without the file's name.
std::string FfmpegStream::Messages() {
  std::string text(400, '\0');
  std::fseek(messages_.get(), 0, SEEK_SET);
  text.resize(std::fread(text.data(), 1, text.size(), messages_.get()));
  const std::string name = "file:" + std::filesystem::absolute(path_).string() + ": ";
  for (std::size_t at; (at = text.find(name)) != std::string::npos;) {
    text.erase(at, name.size());
  }
  while (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  std::string line;
  for (const char c : text) {
    line += c == '\n' ? "; " : std::string(1, static_cast<unsigned char>(c) < ' ' ? '?' : c);
  }
  return line;
}

std::string FfmpegStream::Fault() {
  Wait();
  const std::string messages = Messages();
  if (status_ == 0 && messages.empty()) {
    return has_sound_ ? "" : "ffmpeg finds no sound in it";
  }
  return "it is damaged: ffmpeg: " + (messages.empty() ? "ended with an error" : messages);
}

}  // namespace kelda::tools
