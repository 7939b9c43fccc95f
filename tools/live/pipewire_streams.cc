#include "tools/live/pipewire_streams.h"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "tools/core/clock.h"
#include "tools/core/failure.h"
#include "tools/framework/effect_session.h"

namespace kelda::tools {
namespace {

constexpr const char* kTitle = "Kelda Upmix";

// Of the sink, as the server writes it: its converters give no more frames in a cycle.
constexpr const char* kMaxLatency = "8192/48000";

constexpr std::size_t kStride = kChannels * sizeof(float);

// Tells what a callback took: processor time, but no more than has passed.
class CallbackTime {
 public:
  explicit CallbackTime(CycleMeter* cycles) : cycles_(cycles) {}
  ~CallbackTime() {
    cycles_->Spend(std::min(Nanoseconds(CLOCK_THREAD_CPUTIME_ID) - thread_ns_,
                            Nanoseconds(CLOCK_MONOTONIC) - ns_));
  }
  CallbackTime(const CallbackTime&) = delete;
  CallbackTime& operator=(const CallbackTime&) = delete;

 private:
  CycleMeter* const cycles_;
  const uint64_t thread_ns_ = Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
  const uint64_t ns_ = Nanoseconds(CLOCK_MONOTONIC);
};

}  // namespace

PipeWireStreams::PipeWireStreams(PipeWireConnection* connection, const StreamOptions& options,
                                 LiveAudio* audio)
    : connection_(connection),
      audio_(audio),
      latency_frames_(options.latency_frames),
      sink_(options.sink) {
  static const pw_stream_events capture_events = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.param_changed = OnCaptureParam;
    events.process = OnCaptureProcess;
    events.state_changed = OnState;
    return events;
  }();
  static const pw_stream_events playback_events = [] {
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.param_changed = OnPlaybackParam;
    events.process = OnPlaybackProcess;
    events.io_changed = OnIo;
    events.state_changed = OnState;
    return events;
  }();
  const std::string description = options.title.empty() ? kTitle : options.title;
  pw_properties* const playback = pw_properties_new(
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", PW_KEY_MEDIA_ROLE, "Music",
      PW_KEY_APP_NAME, kTitle, PW_KEY_NODE_DESCRIPTION, kTitle, PW_KEY_MEDIA_NAME,
      description.c_str(), nullptr);
  if (!options.output.empty()) {
    pw_properties_set(playback, PW_KEY_TARGET_OBJECT, options.output.c_str());
  }
  if (options.sink) {
    // One group: both streams run in the same cycle, and are never linked to each other.
    for (const char* const group : {PW_KEY_NODE_GROUP, PW_KEY_NODE_LINK_GROUP}) {
      pw_properties_set(playback, group, kSinkName);
    }
    pw_properties_set(playback, PW_KEY_NODE_NAME, "kelda_upmix.output");
    // Where nothing plays into the sink, the output may sleep.
    pw_properties_set(playback, PW_KEY_NODE_PASSIVE, "true");
    capture_.reset(
        pw_stream_new(connection->core(), kTitle,
                      pw_properties_new(PW_KEY_MEDIA_CLASS, "Audio/Sink", PW_KEY_NODE_NAME,
                                        kSinkName, PW_KEY_NODE_DESCRIPTION, kTitle, PW_KEY_APP_NAME,
                                        kTitle, PW_KEY_NODE_GROUP, kSinkName,
                                        PW_KEY_NODE_LINK_GROUP, kSinkName, PW_KEY_NODE_VIRTUAL,
                                        "true", PW_KEY_NODE_MAX_LATENCY, kMaxLatency, nullptr)));
    pw_stream_add_listener(capture_.get(), &capture_listener_, &capture_events, this);
  }
  playback_.reset(pw_stream_new(connection->core(), kTitle, playback));
  pw_stream_add_listener(playback_.get(), &playback_listener_, &playback_events, this);
  if (sink_) {
    Connect(capture_.get(), PW_DIRECTION_INPUT, PW_STREAM_FLAG_NONE, "a sink");
  }
  Connect(playback_.get(), PW_DIRECTION_OUTPUT,
          !sink_
              ? PW_STREAM_FLAG_AUTOCONNECT
              : static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_TRIGGER),
          "a stream");
}

void PipeWireStreams::Connect(pw_stream* stream, pw_direction direction, pw_stream_flags more,
                              const char* what) {
  spa_audio_info_raw format{};
  format.format = SPA_AUDIO_FORMAT_F32;
  format.rate = kSampleRateHz;
  format.channels = kChannels;
  format.position[0] = SPA_AUDIO_CHANNEL_FL;
  format.position[1] = SPA_AUDIO_CHANNEL_FR;
  uint8_t bytes[1024];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes, sizeof(bytes));
  // Until a neighbour says what it adds.
  spa_latency_info latency{};
  latency.direction = static_cast<spa_direction>(direction);
  AddOwn(&latency);
  const spa_pod* params[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format),
                             spa_latency_build(&builder, SPA_PARAM_Latency, &latency)};
  const int result = pw_stream_connect(
      stream, direction, PW_ID_ANY,
      static_cast<pw_stream_flags>(PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS | more),
      params, std::size(params));
  if (result < 0) {
    throw Failure(ExitCode::kOutput,
                  std::string("PipeWire refuses ") + what + ": " + std::strerror(-result));
  }
}

std::string PipeWireStreams::target() const {
  return connection_->TargetOf(pw_stream_get_node_id(playback_.get()));
}

void PipeWireStreams::AddOwn(spa_latency_info* latency) const {
  constexpr uint64_t kPerSecond = 1'000'000'000;
  const std::size_t frames = latency_frames_ + (sink_ ? OutputQueue::kSpareFrames : 0);
  const uint64_t own = kPerSecond * frames / kSampleRateHz;
  latency->min_ns += own;
  latency->max_ns += own;
}

// The sink is as late as the output and what lies between: `direction` is that of what is passed
// on. So players keep pictures in time.
void PipeWireStreams::PassLatency(const spa_pod* param, spa_direction direction, pw_stream* to) {
  spa_latency_info latency{};
  if (param == nullptr || to == nullptr || spa_latency_parse(param, &latency) < 0 ||
      latency.direction != direction) {
    return;
  }
  AddOwn(&latency);
  uint8_t bytes[512];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, bytes, sizeof(bytes));
  const spa_pod* params[] = {spa_latency_build(&builder, SPA_PARAM_Latency, &latency)};
  pw_stream_update_params(to, params, 1);
}

void PipeWireStreams::OnCaptureParam(void* data, uint32_t id, const spa_pod* param) {
  auto* const self = static_cast<PipeWireStreams*>(data);
  if (id == SPA_PARAM_Latency) {
    self->PassLatency(param, SPA_DIRECTION_OUTPUT, self->playback_.get());
  }
}

void PipeWireStreams::OnPlaybackParam(void* data, uint32_t id, const spa_pod* param) {
  auto* const self = static_cast<PipeWireStreams*>(data);
  if (id == SPA_PARAM_Latency) {
    self->PassLatency(param, SPA_DIRECTION_INPUT, self->capture_.get());
  }
}

void PipeWireStreams::OnIo(void* data, uint32_t id, void* area, uint32_t) {
  if (id == SPA_IO_Position) {
    auto* const self = static_cast<PipeWireStreams*>(data);
    const std::lock_guard lock(self->position_mutex_);
    self->position_ = static_cast<const spa_io_position*>(area);
  }
}

void PipeWireStreams::OnState(void* data, pw_stream_state, pw_stream_state now, const char* error) {
  auto* const self = static_cast<PipeWireStreams*>(data);
  {
    const std::lock_guard lock(self->plays_mutex_);
    self->plays_ = self->playback_ != nullptr &&
                   pw_stream_get_state(self->playback_.get(), nullptr) == PW_STREAM_STATE_STREAMING;
  }
  self->audio_->cycles().Interrupt();
  self->restarts_ = true;
  if (now == PW_STREAM_STATE_ERROR) {
    self->fault_ = error != nullptr ? error : "a stream failed";
  }
}

// ---- The data thread. PipeWire's functions here are made for it.

void PipeWireStreams::NoteCycle() {
  const std::unique_lock lock(position_mutex_, std::try_to_lock);
  if (lock && position_ != nullptr && position_->clock.rate.num != 0) {
    const spa_io_clock& clock = position_->clock;
    audio_->cycles().Begin(
        {clock.id, clock.rate.denom / clock.rate.num, clock.position, clock.duration},
        Nanoseconds(CLOCK_THREAD_CPUTIME_ID));
  }
}

void PipeWireStreams::OnCaptureProcess(void* data) {
  auto* const self = static_cast<PipeWireStreams*>(data);
  self->NoteCycle();
  const CallbackTime time(&self->audio_->cycles());
  if (self->restarts_.exchange(false)) {
    self->queue_.Clear();
  }
  self->TakeInput();
  const std::unique_lock lock(self->plays_mutex_, std::try_to_lock);
  if (!lock || !self->plays_ || pw_stream_trigger_process(self->playback_.get()) < 0) {
    self->queue_.Clear();  // nothing plays just now; what is heard next follows what comes in
  }
}

void PipeWireStreams::OnPlaybackProcess(void* data) {
  auto* const self = static_cast<PipeWireStreams*>(data);
  if (!self->sink_) {
    self->NoteCycle();
  }
  const CallbackTime time(&self->audio_->cycles());
  if (pw_buffer* const buffer = pw_stream_dequeue_buffer(self->playback_.get())) {
    self->Deliver(buffer);
    pw_stream_queue_buffer(self->playback_.get(), buffer);
  }
}

void PipeWireStreams::TakeInput() {
  pw_stream* const capture = capture_.get();
  while (pw_buffer* const buffer = pw_stream_dequeue_buffer(capture)) {
    const spa_data& data = buffer->buffer->datas[0];
    const uint32_t offset = std::min(data.chunk->offset, data.maxsize);
    const uint32_t bytes = std::min(data.chunk->size, data.maxsize - offset);
    if (data.data != nullptr) {
      const std::size_t skipped = offset / sizeof(float);
      Process(static_cast<const float*>(data.data) + skipped, bytes / kStride);
    }
    pw_stream_queue_buffer(capture, buffer);
  }
}

void PipeWireStreams::Process(const float* in, std::size_t frames) {
  constexpr std::size_t kMost = 1024;
  float out[kChannels * kMost];
  while (frames > 0) {
    const std::size_t piece = std::min(frames, kMost);
    audio_->Process(in, out, piece);
    queue_.Push(out, piece);
    in += kChannels * piece;
    frames -= piece;
  }
}

void PipeWireStreams::Deliver(pw_buffer* buffer) {
  spa_data& data = buffer->buffer->datas[0];
  if (data.data == nullptr) {
    return;
  }
  auto* const out = static_cast<float*>(data.data);
  std::size_t frames = data.maxsize / kStride;
  frames = buffer->requested != 0 ? std::min<std::size_t>(frames, buffer->requested) : frames;
  if (sink_) {
    queue_.Take(out, frames);
  } else {
    audio_->Process(nullptr, out, frames);
  }
  data.chunk->offset = 0;
  data.chunk->stride = kStride;
  data.chunk->size = static_cast<uint32_t>(frames * kStride);
  buffer->size = frames;
}

}  // namespace kelda::tools
