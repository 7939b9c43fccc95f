// Audio files as the source of a live engine.
//
//   decoder's thread: AudioSource ──► ring ──► data thread: fade ──► LiveEngine
#ifndef KELDA_TOOLS_LIVE_FILE_PLAYER_H_
#define KELDA_TOOLS_LIVE_FILE_PLAYER_H_

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/nonblocking.h"
#include "tools/live/frame_ring.h"
#include "tools/live/live_audio.h"
#include "tools/live/live_engine.h"

namespace kelda::tools {

struct PlayPosition {
  std::size_t file = 0;  // counts from 0
  int64_t frame = 0;     // at 48 kHz
  std::optional<int64_t> total_frames;
  bool paused = false;
  bool over = false;  // everything was played, its tail included
};

// Plays files one after the other, without a gap. A pause and a leap are fades of 10 ms around
// silence, which the effect hears as it hears any audio. A file that cannot be read is left out,
// with a message.
class FilePlayer : public LiveAudio {
 public:
  // Starts the decoder. `engine` outlives it. `files` is not empty.
  FilePlayer(LiveEngine* engine, std::vector<std::filesystem::path> files);
  ~FilePlayer() override;

  // Control, as everything but Process.
  void TogglePause();
  void SeekBy(double seconds);  // within the file
  // To the beginning of another that can be read, or of this one at either end.
  void Skip(std::ptrdiff_t files);
  PlayPosition position() const;
  // How many files could not be read, or not to their end.
  std::size_t failed() const;

  void Process(const float* in, float* out, std::size_t frames) KELDA_NONBLOCKING override;
  CycleMeter& cycles() override { return engine_->cycles(); }

 private:
  // From frame `begin` of what the ring was given, it holds a file's frames from `from` on.
  struct Segment {
    uint64_t begin = 0;
    std::size_t file = 0;
    int64_t from = 0;
    std::optional<int64_t> total;
  };

  Segment Now() const;
  void LeapTo(std::size_t file, int64_t frame);
  void Decode();
  bool DecodeFile(std::size_t file, int64_t from);
  void Fail(std::size_t file, bool readable, const std::string& why);
  bool Push(const float* frames, std::size_t count);
  // The decoder shall leave off what it does.
  bool Leaves() const { return ending_ || leap_ != leapt_; }
  void Fill(float* out, std::size_t frames) KELDA_NONBLOCKING;

  LiveEngine* const engine_;
  const std::vector<std::filesystem::path> files_;
  FrameRing ring_;

  mutable std::mutex mutex_;  // control and decoder
  std::condition_variable wake_;
  std::deque<Segment> segments_;
  std::size_t leap_file_ = 0;
  int64_t leap_frame_ = 0;
  std::set<std::size_t> failed_, unreadable_;

  std::atomic<bool> ending_{false};
  // A leap: control counts leap_ up, the data thread fades out, the decoder pushes no more and says
  // so by leapt_, the data thread empties the ring and says so by emptied_, and the decoder goes on
  // elsewhere.
  std::atomic<uint64_t> leap_{0}, leapt_{0}, emptied_{0};
  std::atomic<bool> paused_{false}, complete_{false};
  std::atomic<uint64_t> popped_{0}, tail_{0};
  std::size_t gain_ = 0;  // the data thread's, of kFadeFrames
  std::thread thread_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_FILE_PLAYER_H_
