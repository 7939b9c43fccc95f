#ifndef KELDA_TESTS_EFFECT_SCRIPTED_PROCESSOR_H_
#define KELDA_TESTS_EFFECT_SCRIPTED_PROCESSOR_H_

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "pipeline/audio_processor.h"

namespace kelda::test {

// A stage that a test scripts: counts, latency, gain, and a journal of its calls.
struct Script {
  const char* name = "s";
  unsigned in = 2, out = 2, period = 1024, delayed = 0;
  float gain = 1.0f;
  float echo = 0.0f;     // adds echo x the sample 100 frames ago, so that order matters
  bool produces = true;  // or returns false and leaves the output alone
  std::string report = "\n";
};

class ScriptedProcessor : public AudioProcessor {
 public:
  explicit ScriptedProcessor(const Script& script, std::vector<std::string>* journal = nullptr)
      : AudioProcessor(true, true),
        script_(script),
        journal_(journal),
        history_(std::max(script.in, script.out), std::vector<float>(100)) {}

  const char* GetName() const override { return script_.name; }
  unsigned GetInputChannelCount() const override { return script_.in; }
  unsigned GetOutputChannelCount() const override { return script_.out; }
  unsigned GetMinPeriodFrames() const override { return script_.period; }
  unsigned GetDelayedFrames() const override { return script_.delayed; }
  void SetParameters(const ParameterMap& params) override {
    Note("params " + std::to_string(params.size()));
  }
  // Plane c of the output is made of plane min(c, in - 1) of the input.
  bool Process(float* in, float* out, unsigned frames) override {
    if (!script_.produces) return false;
    for (unsigned c = 0; c < script_.out; ++c) {
      const float* const plane = in + std::min(c, script_.in - 1) * frames;
      for (unsigned f = 0; f < frames; ++f) {
        float& echo = history_[c][HistoryIndex(f)];
        out[c * frames + f] = script_.gain * plane[f] + script_.echo * echo;
        echo = plane[f];
      }
    }
    frames_ += frames;
    return true;
  }
  void Flush() override { Note("flush"); }
  void Restart() override { Note("restart"); }
  void Dumpsys(std::string* out) const override { out->append(script_.report); }

 private:
  void Note(const std::string& what) {
    if (journal_ != nullptr) journal_->push_back(std::string(script_.name) + " " + what);
  }
  size_t HistoryIndex(unsigned f) const { return (frames_ + f) % 100; }

  const Script script_;
  std::vector<std::string>* const journal_;
  std::vector<std::vector<float>> history_;
  size_t frames_ = 0;
};

}  // namespace kelda::test

#endif  // KELDA_TESTS_EFFECT_SCRIPTED_PROCESSOR_H_
