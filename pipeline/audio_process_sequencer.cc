#include "pipeline/audio_process_sequencer.h"

#include <algorithm>
#include <cstddef>

#include "pipeline/matrix_conversion.h"

namespace kelda {
namespace {

constexpr unsigned kFadeFrames = 4800;

// A host block of up to this many periods goes through the rings as one slice, a longer
// one in slices of one period, with the rest as the last slice.
constexpr unsigned kLongestSlicePeriods = 3;

// Why the rings never overfill. P is the period, n <= 3P the frames of a slice, r < P the
// frames waiting in the input ring and q those queued in the output ring.
//
// Input: the frames that complete a period are taken from the host's block directly; only
// the rest, r < P, is enqueued. Even a whole slice would fit, as r + n < 4P.
//
// Output: let T = q + r between slices. A delivered slice takes n frames in and n
// frames out, so T stays. A silent one adds n to T, but it is only silent because
// after its periods were processed q < n or q < 2P (not ready yet), so that
// afterwards T = q + r < 3P + P. Hence T < 4P always, and the most that is queued
// before a slice is delivered is T + n < 7P.
//
// Both bounds are strict, as a ring that is filled completely would read as empty.
//
// Why a stream of one block size is silent at its beginning only: T never falls. Once
// T >= P and the ring is ready, a slice finds q = T + n - r > n and is delivered. Every
// stream reaches that state or does not need it:
// - Slices of up to P frames, also those of a longer block, are silent until q >= 2P. The
//   first delivered one takes P of them at most.
// - A block of 2P or of 3P frames is delivered at once and takes all; so does the next one.
// - Any other block between P and 3P finds too little the first time and leaves T = n > P;
//   the second one finds q > n > P, which is two whole periods or more.
constexpr unsigned kInputRingPeriods = 4;
constexpr unsigned kOutputRingPeriods = 8;
constexpr unsigned kReadyPeriods = 2;

constexpr int kSwapTable13[13] = {1, 2, 0, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12};
constexpr int kSwapTable16[16] = {1, 2, 0, 15, 13, 14, 3, 4, 6, 5, 7, 8, 9, 11, 10, 12};

}  // namespace

bool AudioProcessSequencer::SetProcessorChain(std::list<AudioProcessor*>* chain) {
  if (chain == nullptr || chain->empty()) {
    return false;
  }
  DestoryWorkBuffer();
  chain_ = chain;
  input_channels_ = chain->front()->GetInputChannelCount();
  output_channels_ = chain->back()->GetOutputChannelCount();
  work_channels_ = 0;
  period_frames_ = 0;
  for (const AudioProcessor* processor : *chain) {
    work_channels_ = std::max(work_channels_, processor->GetInputChannelCount());
    period_frames_ = std::max(period_frames_, processor->GetMinPeriodFrames());
  }
  input_period_bytes_ = input_channels_ * period_frames_ * unsigned{sizeof(float)};
  output_period_bytes_ = output_channels_ * period_frames_ * unsigned{sizeof(float)};
  CreateWorkBuffer();
  return true;
}

void AudioProcessSequencer::CreateWorkBuffer() {
  input_ring_ = std::make_unique<RingBuffer>(
      static_cast<int>(kInputRingPeriods * input_period_bytes_), /*ready_threshold_bytes=*/0);
  output_ring_ = std::make_unique<FadableRingBuffer>(
      output_channels_, kOutputRingPeriods * output_period_bytes_,
      static_cast<int>(kReadyPeriods * output_period_bytes_));
  for (auto& buffer : work_) {
    buffer = MakeCacheAligned<float>(std::size_t{period_frames_} * work_channels_);
  }
}

void AudioProcessSequencer::DestoryWorkBuffer() {
  input_ring_.reset();
  output_ring_.reset();
  for (auto& buffer : work_) {
    buffer.reset();
  }
}

unsigned AudioProcessSequencer::GetDelayedFrames() const {
  unsigned frames = 0;
  for (const AudioProcessor* processor : *chain_) {
    if (processor->IsEnabled()) {
      frames += processor->GetDelayedFrames();
    }
  }
  return frames;
}

void AudioProcessSequencer::SetParameters(const ParameterMap& params) {
  for (AudioProcessor* processor : *chain_) {
    processor->SetParameters(params);
  }
}

bool AudioProcessSequencer::Process(const float* in, float* out, unsigned frames) {
  if (frames != period_frames_) {
    StartRequestedFade();
  }
  if (frames == 0) {
    return true;  // the buffers may be null then
  }
  input_frames_ += frames;
  bool delivered = true;
  if (frames == period_frames_) {
    TakeInput(0, in, frames);
    RunChain(out);
    output_frames_ += frames;
  } else {
    const unsigned longest =
        frames > kLongestSlicePeriods * period_frames_ ? period_frames_ : frames;
    for (unsigned done = 0; done < frames; done += longest) {
      delivered &= ProcessBuffered(in + std::size_t{done} * input_channels_,
                                   out + std::size_t{done} * output_channels_,
                                   std::min(frames - done, longest));
    }
  }
  if (pcm_dump_) {
    pcm_dump_->Write(*out, frames);
  }
  return delivered;
}

// Called before new input is processed, so that the fade-out applies to output of the previous
// configuration, and the silence and the fade-in to output of the new one.
void AudioProcessSequencer::StartRequestedFade() {
  if (!fade_requested_) {
    return;
  }
  output_ring_->RequestFadingFrames(kFadeFrames, GetDelayedFrames());
  fade_requested_ = false;
}

bool AudioProcessSequencer::ProcessBuffered(const float* in, float* out, unsigned frames) {
  const float* rest = in;
  unsigned rest_frames = frames;
  for (unsigned waiting = WaitingFrames(); waiting + rest_frames >= period_frames_; waiting = 0) {
    const unsigned missing = period_frames_ - waiting;
    ProcessPeriodToRing(waiting, rest);
    rest += std::size_t{missing} * input_channels_;
    rest_frames -= missing;
  }
  input_ring_->Enqueue(reinterpret_cast<const char*>(rest),
                       static_cast<int>(rest_frames * input_channels_ * sizeof(float)));
  const std::size_t samples = std::size_t{frames} * output_channels_;
  const int bytes = static_cast<int>(samples * sizeof(float));
  if (!output_ring_->HaveData(bytes) || !output_ring_->IsReady()) {
    std::fill_n(out, samples, 0.0f);
    return false;
  }
  output_ring_->Dequeue(reinterpret_cast<char*>(out), bytes);
  output_frames_ += frames;
  return true;
}

unsigned AudioProcessSequencer::WaitingFrames() const {
  return static_cast<unsigned>(input_ring_->Size()) / (input_channels_ * unsigned{sizeof(float)});
}

// Processes one period to the output ring: the `waiting` frames of the input ring, completed by
// frames of `in`. Afterwards the input ring is empty and starts again at its beginning, so its
// contents never wrap around. The output ring's periods do not wrap either, because its capacity
// is a multiple of a period. So both are converted in place, without a copy.
void AudioProcessSequencer::ProcessPeriodToRing(unsigned waiting, const float* in) {
  TakeInput(0, reinterpret_cast<const float*>(input_ring_->read_position()), waiting);
  TakeInput(waiting, in, period_frames_ - waiting);
  input_ring_->Dequeue(nullptr, input_ring_->Size());
  char* const period = output_ring_->write_position();
  RunChain(reinterpret_cast<float*>(period));
  output_ring_->FadableEnqueue(period, static_cast<int>(output_period_bytes_));
}

// Converts `frames` interleaved frames to planes, to the place of frame `first` in the period
// that RunChain processes.
void AudioProcessSequencer::TakeInput(unsigned first, const float* in, unsigned frames) {
  MatrixConversion::ToPlanes(work_[0].get() + first, static_cast<int>(period_frames_), in,
                             static_cast<int>(frames), static_cast<int>(input_channels_),
                             GetSwapTable(input_channels_));
}

// Runs the chain over the period in the first work buffer; `out` is interleaved.
void AudioProcessSequencer::RunChain(float* out) {
  processed_frames_ += period_frames_;
  float* buffers[2] = {work_[0].get(), work_[1].get()};
  const int result = invokeProcessorChain(buffers, 0, period_frames_);
  MatrixConversion::ToInterleave(out, buffers[result], static_cast<int>(period_frames_),
                                 static_cast<int>(output_channels_), nullptr);
}

int AudioProcessSequencer::invokeProcessorChain(float** buffers, int first, unsigned frames) {
  int source = first;
  for (AudioProcessor* processor : *chain_) {
    if (!processor->IsEnabled()) {
      continue;
    }
    // A processor that is not ready leaves its output buffer as it was; the chain goes on with
    // what that holds.
    processor->Process(buffers[source], buffers[1 - source], frames);
    source = 1 - source;
  }
  return source;
}

const int* AudioProcessSequencer::GetSwapTable(unsigned channels) {
  switch (channels) {
    case 13:
      return kSwapTable13;
    case 16:
      return kSwapTable16;
    default:
      return nullptr;
  }
}

void AudioProcessSequencer::FlushWorkBuffer() {
  if (input_ring_) {
    input_ring_->Init();
  }
  if (output_ring_) {
    discarded_frames_ +=
        static_cast<unsigned>(output_ring_->Size()) / (output_channels_ * unsigned{sizeof(float)});
    output_ring_->Init();
  }
  fade_requested_ = false;
}

void AudioProcessSequencer::Flush() {
  for (AudioProcessor* processor : *chain_) {
    processor->Flush();
  }
  FlushWorkBuffer();
}

void AudioProcessSequencer::Restart() {
  for (AudioProcessor* processor : *chain_) {
    processor->Restart();
  }
  FlushWorkBuffer();
}

}  // namespace kelda
