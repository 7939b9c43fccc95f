#include "tools/live/recording.h"

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/core/status_line.h"

namespace kelda::tools {
namespace {

constexpr std::size_t kWriteFrames = 4096;

std::filesystem::path Made(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw Failure(ExitCode::kOutput, directory.string() + ": " + error.message());
  }
  return directory;
}

}  // namespace

Recording::Recording(LiveEngine* engine, const std::filesystem::path& directory)
    : tap_(engine->AddTap()),
      in_(Made(directory) / kKeptIn, std::nullopt),
      out_(directory / kKeptOut, std::nullopt),
      frames_(kWriteFrames * tap_.frames.width()) {}

void Recording::Poll() {
  if (ended_) {
    return;
  }
  try {
    WriteWhatCame();
  } catch (const Failure& failure) {
    ended_ = true;
    ShowMessage(std::string("warning: the recording ends here: ") + failure.what());
    in_.FinishShort();
    out_.FinishShort();
  }
}

void Recording::WriteWhatCame() {
  float in[kChannels * kWriteFrames], out[kChannels * kWriteFrames];
  while (const std::size_t count = tap_.frames.Pop(frames_.data(), kWriteFrames)) {
    for (std::size_t i = 0; i < count; ++i) {
      const float* const frame = frames_.data() + tap_.frames.width() * i;
      std::copy_n(frame, kChannels, in + kChannels * i);
      std::copy_n(frame + kChannels, kChannels, out + kChannels * i);
    }
    in_.Write(in, count);
    out_.Write(out, count);
  }
}

void Recording::Finish() {
  Poll();
  if (ended_) {
    return;
  }
  if (const uint64_t lost = tap_.lost) {
    ShowMessage("warning: the recording lacks " + std::to_string(lost) +
                " frames, because writing was too slow");
  }
  in_.Finish();
  out_.Finish();
}

}  // namespace kelda::tools
