// The open signal library once more, on what goes into the effect, outside the thread that is
// heard: both sides' chains, to make them equally loud and to show what is inside. Stereo is
// interleaved, at 48 kHz.
#ifndef KELDA_TOOLS_COCKPIT_SIDE_RUNS_H_
#define KELDA_TOOLS_COCKPIT_SIDE_RUNS_H_

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/cockpit/meters.h"
#include "tools/cockpit/tuning_model.h"
#include "tools/tune/chain_loudness.h"
#include "upmix-lib/level/level_control.h"

namespace kelda::tools {

// What decides how a side sounds: parts of its files.
struct ChainFiles {
  UpmixMode mode = UpmixMode::Off;                       // never Auto
  std::vector<std::byte> upmix, ears, equalizer, level;  // equalizer: empty if none runs

  bool operator==(const ChainFiles&) const = default;
};
// `playing` is the mode that Auto stands for.
ChainFiles ChainFilesOf(const Side& side, UpmixMode playing);

// A side's chain with its level control. One thread.
class SideRun {
 public:
  // Takes over other files: the level control goes on with its gain. `past`: interleaved stereo
  // that the new chain is rolled in with. Throws Failure if they cannot be read.
  void Use(const ChainFiles& files, std::span<const float> past);
  const ChainFiles& files() const { return files_; }
  // Goes on after a rest, at whose end `past` went into the effect: interleaved stereo.
  void RollIn(std::span<const float> past);

  // kBlockFrames of interleaved stereo, all finite.
  void Process(const float* in);

  RunningLoudness& loudness() { return loudness_; }
  const RunningLoudness& loudness() const { return loudness_; }
  const std::vector<float>& output() const { return out_; }  // of the last block, interleaved
  // Of the last block; nothing in Off.
  std::optional<PlanePowers> planes() const;
  std::optional<double> limiter_gain() const;

 private:
  void Run(const float* in);

  ChainFiles files_;
  Chain chain_;  // none in Off
  std::unique_ptr<PlanePowers> planes_ = std::make_unique<PlanePowers>();
  std::optional<upmix_lib::LevelControl> level_;
  RunningLoudness loudness_;
  std::vector<float> left_, right_, leveled_, out_;
};

// The gains that make two sides equally loud: the louder one is made softer.
struct Match {
  // Over less than 3 s it would move with every word of a programme.
  static constexpr std::size_t kLeastHops = RunningLoudness::kShortHops;

  double a_db = 0, b_db = 0;
  double difference_lu = 0;  // A over B, without these gains
  bool ready = false;        // measured for long enough
};

// Which side is heard, and how much louder than the effect makes it.
struct AudibleSide {
  TuningModel::Which side = TuningModel::Which::kA;
  double trim_db = 0;

  bool operator==(const AudibleSide&) const = default;
};

// The runs of both sides, and what is heard: a level control may settle otherwise than in a run, so
// a side's loudness is that of its run and, once the side has been heard for long enough, what was
// heard beyond it.
class SideRuns {
 public:
  // Of another signal library than the open one there are no runs: the loudness of a side is what
  // was heard beyond the input.
  explicit SideRuns(bool open_library) : open_library_(open_library) {}

  // Where both sides have the same chain, one run serves both. Returns whether that side's changed.
  // Throws Failure.
  bool Use(TuningModel::Which which, const ChainFiles& files);

  // What is heard from now on; nothing while it changes.
  void Hear(const std::optional<AudibleSide>& heard);

  // What goes into the effect and what comes out, of any length and all finite. Only the sides that
  // are asked for run.
  void Process(const float* in, const float* out, std::size_t frames, bool a, bool b);

  // By BS.1770 over the same seconds of both, 8 at most, and not from before the last change.
  Match MatchNow() const;
  // The run that has the sound of a side.
  const SideRun& run(TuningModel::Which which) const { return runs_[RunOf(which)]; }

 private:
  std::size_t RunOf(TuningModel::Which which) const {
    const auto index = static_cast<std::size_t>(which);
    return wanted_[index] ? index : 1 - index;
  }
  void Restart();
  void CompareWithHeard();

  const bool open_library_;
  std::array<SideRun, 2> runs_;
  std::array<ChainFiles, 2> files_;
  std::array<bool, 2> used_{}, wanted_{};
  // What was heard of a side over its run, in LU.
  std::array<std::optional<double>, 2> beyond_;
  std::optional<AudibleSide> heard_;
  RunningLoudness loudness_;      // of what is heard
  std::size_t heard_blocks_ = 0;  // since heard_ is what it is
  std::vector<float> in_, out_;   // the next block
  std::vector<float> past_;       // half a second of input
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_SIDE_RUNS_H_
