#include "tools/cockpit/side_runs.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "changeover/instance.h"
#include "changeover/session.h"
#include "settings/tuning_directory.h"
#include "tools/core/failure.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::kBlockFrames;

constexpr std::size_t kBlockSamples = 2 * std::size_t{kBlockFrames};
constexpr std::size_t kPastBlocks = 24;  // half a second
constexpr double kSilentLufs = -70, kMostDb = 40;

void Require(upmix_lib::Status status, const char* what) {
  if (status != upmix_lib::kOk) {
    throw Failure(ExitCode::kInput, std::string(what) + " cannot be used, status " +
                                        std::to_string(static_cast<int>(status)));
  }
}

template <typename Parameters>
Parameters Load(const std::vector<std::byte>& bytes, const ParameterSet& set) {
  Parameters parameters;
  Require(bytes.size() == sizeof(parameters)
              ? upmix_lib::LoadParameters(bytes.data(), *set.kind, set.fields, parameters)
              : upmix_lib::kDataBadLength,
          set.title);
  return parameters;
}

}  // namespace

ChainFiles ChainFilesOf(const Side& side, UpmixMode playing) {
  ChainFiles chain;
  const UpmixMode mode = side.mode == UpmixMode::Auto ? playing : side.mode;
  if (side.headphone() == AudioDeviceType::Other || mode == UpmixMode::Off) {
    return chain;
  }
  const TuningFiles files = side.HeardFiles();
  const bool personalized = side.hrtf() == HrtfType::Personalized, music = mode == UpmixMode::Music;
  chain.mode = mode;
  chain.ears = *files.at(side.EarsFile());
  chain.upmix = *files.at(SlotOf(side, music ? "music" : "cinema").file);
  chain.level = *files.at(SlotOf(side, music ? "level-music" : "level-cinema").file);
  if (personalized) {
    chain.equalizer = *files.at(side.EqualizerFile());
  }
  return chain;
}

// ---- One side.

void SideRun::Use(const ChainFiles& files, std::span<const float> past) {
  if (files.mode == UpmixMode::Off) {
    chain_ = nullptr;
  } else {
    upmix_lib::HrirSet ears;
    Require(upmix_lib::CheckContainer(files.ears, upmix_lib::kHrirKind), "the ears");
    Require(upmix_lib::ParseHrirSet(files.ears, ears), "the ears");
    std::optional<upmix_lib::EqualizerTuning> equalizer;
    if (!files.equalizer.empty()) {
      Require(upmix_lib::CheckContainer(files.equalizer, upmix_lib::kEqualizerKind),
              "the equalizer");
      Require(upmix_lib::ParseEqualizer(files.equalizer, equalizer.emplace()), "the equalizer");
    }
    const upmix_lib::EqualizerTuning* const tuning = equalizer ? &*equalizer : nullptr;
    const auto level = Load<upmix_lib::LevelParameters>(files.level, LevelParameterSet());
    if (files.mode == UpmixMode::Music) {
      chain_ = MusicChain(Load<upmix_lib::MusicParameters>(files.upmix, MusicParameterSet()), ears,
                          tuning, planes_.get());
    } else {
      chain_ = CinemaChain(Load<upmix_lib::CinemaParameters>(files.upmix, CinemaParameterSet()),
                           ears, tuning, planes_.get());
    }
    if (level_) {
      level_->ContinueWith(level);
    } else {
      level_.emplace(level);
    }
  }
  files_ = files;
  left_.assign(kBlockFrames, 0.0f);
  right_ = left_;
  leveled_.assign(kBlockSamples, 0.0f);
  out_ = leveled_;
  RollIn(past);
}

void SideRun::RollIn(std::span<const float> past) {
  for (std::size_t at = 0; at + kBlockSamples <= past.size(); at += kBlockSamples) {
    Run(&past[at]);
  }
  loudness_.Restart();
}

void SideRun::Run(const float* in) {
  if (chain_ == nullptr) {
    out_.assign(in, in + kBlockSamples);
    return;
  }
  for (std::size_t i = 0; i < kBlockFrames; ++i) {
    left_[i] = in[2 * i];
    right_[i] = in[2 * i + 1];
  }
  chain_(left_.data(), right_.data());
  for (std::size_t i = 0; i < kBlockFrames; ++i) {
    leveled_[2 * i] = left_[i];
    leveled_[2 * i + 1] = right_[i];
  }
  level_->Process(leveled_.data(), out_.data());
}

void SideRun::Process(const float* in) {
  Run(in);
  loudness_.Add(out_.data(), kBlockFrames);
}

std::optional<PlanePowers> SideRun::planes() const {
  return chain_ == nullptr ? std::nullopt : std::optional(*planes_);
}

std::optional<double> SideRun::limiter_gain() const {
  return chain_ == nullptr ? std::nullopt : std::optional(double{level_->limiter_gain()});
}

// ---- Both.

bool SideRuns::Use(TuningModel::Which which, const ChainFiles& files) {
  const auto index = static_cast<std::size_t>(which);
  if (used_[index] && files_[index] == files) {
    return false;
  }
  runs_[index].Use(open_library_ ? files : ChainFiles{}, past_);
  files_[index] = files;
  used_[index] = true;
  beyond_[index].reset();
  Restart();
  return true;
}

void SideRuns::Hear(const std::optional<AudibleSide>& heard) {
  if (heard != heard_) {
    heard_ = heard;
    heard_blocks_ = 0;
  }
}

// All are measured over the same frames.
void SideRuns::Restart() {
  for (SideRun& run : runs_) {
    run.loudness().Restart();
  }
  loudness_.Restart();
  heard_blocks_ = 0;
}

void SideRuns::Process(const float* in, const float* out, std::size_t frames, bool a, bool b) {
  const bool same = runs_[0].files() == runs_[1].files();
  const std::array<bool, 2> wanted{a, b && !(same && a)};
  if (wanted != wanted_) {
    for (std::size_t side = 0; side < runs_.size(); ++side) {
      if (wanted[side] && !wanted_[side]) {
        runs_[side].RollIn(past_);
      }
    }
    wanted_ = wanted;
    Restart();
  }
  if (in_.empty()) {  // the effect is later than a run by this much
    in_.assign(2 * (changeover::Session::kLatencyFrames - changeover::kChainFrames), 0.0f);
  }
  in_.insert(in_.end(), in, in + 2 * frames);
  out_.insert(out_.end(), out, out + 2 * frames);
  const std::size_t blocks = out_.size() / kBlockSamples;
  // One whole after the other, because each fills the caches.
  for (std::size_t side = 0; side < runs_.size(); ++side) {
    for (std::size_t i = 0; i < blocks && wanted[side]; ++i) {
      runs_[side].Process(&in_[i * kBlockSamples]);
    }
  }
  loudness_.Add(out_.data(), blocks * kBlockFrames);
  heard_blocks_ += blocks;
  CompareWithHeard();
  const auto end = static_cast<std::ptrdiff_t>(blocks * kBlockSamples);
  past_.insert(past_.end(), in_.begin(), in_.begin() + end);
  in_.erase(in_.begin(), in_.begin() + end);
  out_.erase(out_.begin(), out_.begin() + end);
  if (constexpr std::size_t kMost = kPastBlocks * kBlockSamples; past_.size() > kMost) {
    past_.erase(past_.begin(), past_.end() - static_cast<std::ptrdiff_t>(kMost));
  }
}

void SideRuns::CompareWithHeard() {
  // A trim comes with a crossfade, which takes up to this long to be heard.
  constexpr std::size_t kLateHops = 4;
  const std::size_t since = heard_blocks_ * kBlockFrames / RunningLoudness::kHopFrames;
  if (!heard_ || since < Match::kLeastHops + kLateHops) {
    return;
  }
  const RunningLoudness& run = runs_[RunOf(heard_->side)].loudness();
  const std::size_t hops = std::min({since - kLateHops, run.hops(), loudness_.hops()});
  if (hops < Match::kLeastHops) {
    return;
  }
  if (const double lufs = run.Lufs(hops); lufs > kSilentLufs) {
    const double beyond = loudness_.Lufs(hops) - heard_->trim_db - lufs;
    beyond_[static_cast<std::size_t>(heard_->side)] =
        std::isfinite(beyond) ? std::optional(beyond) : std::nullopt;
  }
}

Match SideRuns::MatchNow() const {
  Match match;
  if (files_[0] == files_[1]) {
    match.ready = true;
    return match;
  }
  // One of them rests.
  if (open_library_ && RunOf(TuningModel::Which::kA) == RunOf(TuningModel::Which::kB)) {
    return match;
  }
  const RunningLoudness& a = runs_[RunOf(TuningModel::Which::kA)].loudness();
  const RunningLoudness& b = runs_[RunOf(TuningModel::Which::kB)].loudness();
  const std::size_t hops = std::min(a.hops(), b.hops());
  if (hops < Match::kLeastHops || (!open_library_ && !(beyond_[0] && beyond_[1]))) {
    return match;
  }
  const double a_lufs = a.Lufs(hops), b_lufs = b.Lufs(hops);
  if (!(a_lufs > kSilentLufs && b_lufs > kSilentLufs)) {
    return match;
  }
  const double difference = a_lufs + beyond_[0].value_or(0) - (b_lufs + beyond_[1].value_or(0));
  match.a_db = -std::clamp(difference, 0.0, kMostDb);
  match.b_db = -std::clamp(-difference, 0.0, kMostDb);
  match.difference_lu = difference;
  match.ready = true;
  return match;
}

}  // namespace kelda::tools
