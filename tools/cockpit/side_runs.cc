#include "tools/cockpit/side_runs.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

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

void SideRuns::Use(TuningModel::Which which, const ChainFiles& files) {
  const auto index = static_cast<std::size_t>(which);
  if (ran_[index] && runs_[index].files() == files) {
    return;
  }
  runs_[index].Use(files, past_);
  ran_[index] = true;
  Restart();
}

// Both are measured over the same frames.
void SideRuns::Restart() {
  for (SideRun& run : runs_) {
    run.loudness().Restart();
  }
}

void SideRuns::Process(const float* stereo, std::size_t frames, bool a, bool b) {
  const bool same = runs_[0].files() == runs_[1].files();
  const std::array<bool, 2> wanted{a, b && !(same && a)};
  if (wanted != wanted_) {
    wanted_ = wanted;
    Restart();
  }
  for (std::size_t i = 0; i < 2 * frames; ++i) {
    block_.push_back(std::isfinite(stereo[i]) ? stereo[i] : 0.0f);
    if (block_.size() < kBlockSamples) {
      continue;
    }
    for (std::size_t side = 0; side < runs_.size(); ++side) {
      if (wanted[side]) {
        runs_[side].Process(block_.data());
      }
    }
    past_.insert(past_.end(), block_.begin(), block_.end());
    if (past_.size() > kPastBlocks * kBlockSamples) {
      past_.erase(past_.begin(), past_.begin() + static_cast<std::ptrdiff_t>(kBlockSamples));
    }
    block_.clear();
  }
}

Match SideRuns::MatchNow() const {
  Match match;
  if (runs_[0].files() == runs_[1].files()) {
    match.ready = true;
    return match;
  }
  const auto loudness = [this](std::size_t side) -> const RunningLoudness& {
    return runs_[side].loudness();
  };
  const std::size_t hops = std::min(loudness(0).hops(), loudness(1).hops());
  if (hops < Match::kLeastHops) {
    return match;
  }
  const double a = loudness(0).Lufs(hops), b = loudness(1).Lufs(hops);
  if (!(a > kSilentLufs && b > kSilentLufs)) {
    return match;
  }
  return MatchOf(a - b);
}

Match MatchOf(double difference_lu) {
  return {.a_db = -std::clamp(difference_lu, 0.0, kMostDb),
          .b_db = -std::clamp(-difference_lu, 0.0, kMostDb),
          .difference_lu = difference_lu,
          .ready = true};
}

}  // namespace kelda::tools
