#include "tools/capture/capture_analysis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace kelda::tools {

void CaptureEvents::Add(const CaptureEvent& event) {
  ++count;
  if (listed.size() < kMost) {
    listed.push_back(event);
  }
}

CaptureAnalysis::CaptureAnalysis(int channels) : channels_(static_cast<std::size_t>(channels)) {
  findings_.channels.resize(channels_.size());
}

void CaptureAnalysis::Add(std::vector<float>* interleaved) {
  const std::size_t channels = channels_.size();
  for (std::size_t at = 0; at + channels <= interleaved->size(); at += channels) {
    double loudest = 0;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      float* const sample = &(*interleaved)[at + channel];
      AddSample(static_cast<int>(channel), sample);
      loudest = std::max(loudest, std::abs(static_cast<double>(*sample)));
    }
    if (loudest < kSilencePeak) {
      silence_.value = std::max(silence_.frames == 0 ? 0.0 : silence_.value, loudest);
      ++silence_.frames;
    } else {
      EndSilence();
    }
    ++findings_.frames;
  }
}

void CaptureAnalysis::AddSample(int channel, float* sample) {
  Channel& state = channels_[static_cast<std::size_t>(channel)];
  ChannelLevels& levels = findings_.channels[static_cast<std::size_t>(channel)];
  if (!std::isfinite(*sample)) {
    ++(std::isnan(*sample) ? levels.nans : levels.infinities);
    findings_.not_finite.Add({findings_.frames, 1, channel, static_cast<double>(*sample)});
    *sample = 0;
  }
  const double value = *sample;
  const double magnitude = std::abs(value);
  state.sum += value;
  state.sum_of_squares += value * value;
  if (magnitude > levels.peak) {
    levels.peak = magnitude;
    levels.peak_frame = findings_.frames;
  }
  state.equal = value == state.last ? state.equal + 1 : 1;
  state.last = value;
  if (magnitude > 1) {
    ++levels.beyond;
    MarkClipping(channel, findings_.frames, magnitude);
  } else if (magnitude >= kNearFullScale && state.equal >= kFlatFrames) {
    MarkClipping(channel, findings_.frames - state.equal + 1, magnitude);
  }
  if (const auto step = state.steps.Add(value)) {
    AddStep(channel, *step);
  }
}

void CaptureAnalysis::MarkClipping(int channel, int64_t first, double magnitude) {
  CaptureEvent& event = channels_[static_cast<std::size_t>(channel)].clipping;
  if (event.frames != 0 && first - (event.frame + event.frames) >= kSpotGapFrames) {
    findings_.clipping.Add(event);
    event.frames = 0;
  }
  if (event.frames == 0) {
    event = {first, 0, channel, 0};
  }
  event.frames = findings_.frames - event.frame + 1;
  event.value = std::max(event.value, magnitude);
}

void CaptureAnalysis::AddStep(int channel, const Step& step) {
  findings_.discontinuities.Add({step.frame, 1, channel, step.size});
}

void CaptureAnalysis::EndSilence() {
  if (silence_.frames >= kSilenceFrames) {
    silence_.frame = findings_.frames - silence_.frames;
    findings_.silence.Add(silence_);
  }
  silence_.frames = 0;
}

CaptureFindings CaptureAnalysis::Finish() {
  EndSilence();
  for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
    Channel& state = channels_[channel];
    for (int i = 0; i < StepDetector::kFlushFrames && findings_.frames != 0; ++i) {
      if (const auto step = state.steps.Flush()) {
        AddStep(static_cast<int>(channel), *step);
      }
    }
    if (state.clipping.frames != 0) {
      findings_.clipping.Add(state.clipping);
    }
    if (findings_.frames != 0) {
      const auto frames = static_cast<double>(findings_.frames);
      findings_.channels[channel].rms = std::sqrt(state.sum_of_squares / frames);
      findings_.channels[channel].mean = state.sum / frames;
    }
  }
  const auto earlier = [](const CaptureEvent& a, const CaptureEvent& b) {
    return a.frame < b.frame;
  };
  for (CaptureEvents* events : {&findings_.clipping, &findings_.discontinuities}) {
    std::stable_sort(events->listed.begin(), events->listed.end(), earlier);
  }
  return std::move(findings_);
}

}  // namespace kelda::tools
