// Live audio in PipeWire's graph.
//
//   players ──► sink "Kelda Upmix" ──► LiveAudio ──► stream ──► an output      kelda live
//                                      LiveAudio ──► stream ──► an output      kelda play
#ifndef KELDA_TOOLS_LIVE_PIPEWIRE_STREAMS_H_
#define KELDA_TOOLS_LIVE_PIPEWIRE_STREAMS_H_

#include <pipewire/pipewire.h>
#include <spa/node/io.h>
#include <spa/param/latency-utils.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "tools/live/live_audio.h"
#include "tools/live/output_queue.h"
#include "tools/live/pipewire_connection.h"

namespace kelda::tools {

inline constexpr const char* kSinkName = "kelda_upmix";  // of the node, for other programs

struct StreamOptions {
  bool sink = true;                // offer a sink, whose sound is the input
  std::string output;              // the node to play to; empty: the default
  std::string title;               // of what plays, for mixers
  std::size_t latency_frames = 0;  // of the LiveAudio, which players that show pictures ask for
};

// The streams are 48 kHz; the server's adapters convert, whatever rate and quantum the graph has.
// Where the output vanishes the session manager chooses another, and the first again when it is
// back; without any the sink goes on, unheard.
class PipeWireStreams {
 public:
  // `audio` outlives it. Throws Failure (output) if the server refuses.
  PipeWireStreams(PipeWireConnection* connection, const StreamOptions& options, LiveAudio* audio);
  // After it no audio is processed any more.
  ~PipeWireStreams() = default;
  PipeWireStreams(const PipeWireStreams&) = delete;
  PipeWireStreams& operator=(const PipeWireStreams&) = delete;

  // Where the sound goes, in words; empty if nowhere.
  std::string target() const;
  // Why a stream failed; empty if none did.
  const std::string& fault() const { return fault_; }

 private:
  void Connect(pw_stream* stream, pw_direction direction, pw_stream_flags more, const char* what);
  void AddOwn(spa_latency_info* latency) const;
  void PassLatency(const spa_pod* param, spa_direction direction, pw_stream* to);

  struct Closer {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
  };
  using Stream = std::unique_ptr<pw_stream, Closer>;

  static void OnCaptureProcess(void* data);
  static void OnPlaybackProcess(void* data);
  static void OnCaptureParam(void* data, uint32_t id, const spa_pod* param);
  static void OnPlaybackParam(void* data, uint32_t id, const spa_pod* param);
  static void OnIo(void* data, uint32_t id, void* area, uint32_t size);
  static void OnState(void* data, pw_stream_state old, pw_stream_state now, const char* error);

  // Audio.
  void NoteCycle();
  void TakeInput();
  void Process(const float* in, std::size_t frames);
  void Deliver(pw_buffer* buffer);

  PipeWireConnection* const connection_;
  LiveAudio* const audio_;
  const std::size_t latency_frames_;
  const bool sink_;
  std::string fault_;
  // The server's memory, which it takes back once it has told another place.
  const spa_io_position* position_ = nullptr;
  std::mutex position_mutex_;  // the data thread does not wait for it
  // While the output's stream is started or ended, its converter is in the main thread's hands.
  bool plays_ = false;
  std::mutex plays_mutex_;             // the data thread does not wait for it
  std::atomic<bool> restarts_{false};  // the output's stream: what waits for it is out of date
  OutputQueue queue_;                  // the data thread's

  spa_hook capture_listener_{}, playback_listener_{};
  Stream playback_;
  Stream capture_;  // ends first, because it calls the other; null without a sink
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIVE_PIPEWIRE_STREAMS_H_
