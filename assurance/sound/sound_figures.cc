// sound_figures: measures how an installation of the effect sounds, or a peer.
#include <android/log.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "assurance/sound/ear_table.h"
#include "assurance/sound/peers.h"
#include "assurance/sound/plane_table.h"
#include "assurance/sound/signal_library.h"
#include "settings/tuning_directory.h"
#include "tests/laboratory/temporary_folder.h"
#include "tools/core/json.h"
#include "tools/framework/effect_chain.h"
#include "tools/framework/installation.h"
#include "upmix-lib/files/data_file.h"
#include "upmix-lib/level/level_parameters.h"

namespace kelda::sound {
namespace {

struct Options {
  std::filesystem::path library, tuning, mixes, json;
  std::string peer;
  std::filesystem::path sofa = "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa";
  std::vector<std::string> groups = {"planes", "ears", "levels"};
  bool as_input = false;

  bool Wants(const std::string& group) const {
    return std::find(groups.begin(), groups.end(), group) != groups.end();
  }
};

std::vector<Mix> LoadMixes(const std::filesystem::path& folder) {
  std::vector<Mix> mixes;
  for (const MixPlan& plan : MixPlans()) {
    mixes.push_back(LoadMix(folder, plan.name));
  }
  return mixes;
}

class Report {
 public:
  void Add(const std::vector<Figure>& figures) {
    constexpr const char* kBetter[] = {"higher", "lower", "nearer to 0"};
    for (const Figure& figure : figures) {
      const char* const better = kBetter[static_cast<std::size_t>(figure.better)];
      std::printf("%-82s %9.3f %-5s %s is better\n", figure.name.c_str(), figure.value, figure.unit,
                  better);
      std::fflush(stdout);
      json_.push_back({{"name", figure.name},
                       {"value", figure.value},
                       {"unit", figure.unit},
                       {"better", better}});
    }
  }
  void Save(const std::filesystem::path& path) const {
    if (!path.empty() && !(std::ofstream(path) << tools::ToText(json_) << std::flush)) {
      throw std::runtime_error(path.string() + ": cannot be written");
    }
  }

 private:
  tools::Json json_ = tools::Json::array();
};

const Signal& Guitar(const std::vector<Mix>& mixes) {
  for (const Stem& stem : mixes[0].stems) {
    if (stem.place == Place::kLeft) {
      return stem.signal[0];
    }
  }
  throw std::runtime_error("the mix has nothing hard left");
}

void AddPlanes(const Options& options, const std::vector<Mix>& mixes, const tools::Upmix& upmix,
               Report* report) {
  if (!options.Wants("planes")) {
    return;
  }
  for (const Mix& mix : mixes) {
    report->Add(MixFigures(upmix, mix));
  }
  report->Add(MadeFigures(upmix, Guitar(mixes)));
}

void AddEars(const Options& options, const std::vector<Mix>& mixes, const std::string& mode,
             const tools::StereoSystem& ears, const std::filesystem::path& hki,
             std::optional<double> target_lufs, Report* report) {
  if (options.Wants("ears")) {
    report->Add(EarFigures(ears, mode, mixes));
    report->Add(DirectionFigures(ears, mode, options.sofa, hki));
  }
  if (options.Wants("levels")) {
    report->Add(LevelFigures(ears, mode, mixes, target_lufs));
  }
}

void MeasurePeer(const Options& options, const std::vector<Mix>& mixes, Report* report) {
  const std::filesystem::path hki = options.tuning / "standard.hki";
  const TemporaryFolder scratch;
  const System peer = MakePeer(options.peer, hki, scratch.path());
  if (peer.planes) {
    AddPlanes(options, mixes, peer.planes, report);
  }
  AddEars(options, mixes, "music", peer.music, hki, peer.target_lufs, report);
}

// Where the level control of a mode brings every programme. Empty if it corrects none.
std::optional<double> TargetLufs(const std::filesystem::path& tuning, const std::string& mode) {
  const TuningFile& name = mode == "music" ? tuning_file::kMusicLevel : tuning_file::kCinemaLevel;
  std::vector<std::byte> file;
  upmix_lib::LevelParameters level;
  if (upmix_lib::ReadDataFile((tuning / name.name).string(), upmix_lib::kLevelKind, file) !=
          upmix_lib::kOk ||
      file.size() != sizeof(level)) {
    throw std::runtime_error((tuning / name.name).string() + ": no level parameters");
  }
  std::memcpy(&level, file.data(), sizeof(level));
  return level.strength > 0 ? std::optional<double>(level.target_lufs) : std::nullopt;
}

void MeasureEffect(const Options& options, const std::vector<Mix>& mixes, Report* report) {
  const std::filesystem::path folder = std::filesystem::absolute(options.library).parent_path();
  const std::filesystem::path tuning =
      options.tuning.empty() ? folder / "../../share/kelda/tuning" : options.tuning;
  std::filesystem::path effect = folder / "libkelupmix.so";
  if (!std::filesystem::exists(effect)) {
    effect = tools::DefaultEffectLibrary();
  }
  const SignalLibrary library(options.library, tuning);
  tools::SetProperty("vendor.kelda.effect=1");
  __android_log_set_minimum_priority(ANDROID_LOG_ERROR);
  tools::UseTuningDirectory(tuning);
  const tools::EffectLibrary effect_library(effect);  // uses the signal library that is loaded
  const tools::EffectChain chain(effect_library, {tools::ParseSetting("device=wired")});
  const std::filesystem::path hki = tuning / "standard.hki";
  AddPlanes(
      options, mixes, [&](const Planes& in) { return library.Upmix(in); }, report);
  if (options.Wants("planes")) {
    report->Add(
        CinemaPlaneFigures([&](const Planes& in) { return library.CinemaPlanes(in); }, mixes));
    report->Add(RoomFigures([&](const Planes& in) { return library.Virtualize(in); }, hki));
    report->Add(CinemaRoomFigures([&](const Planes& in) { return library.Cinema(in); },
                                  [&](const Planes& in) { return library.CinemaRoom(in); }));
  }
  for (const std::string mode : {"music", "cinema"}) {
    if (options.as_input) {
      report->Add(LoudnessFigures([&](const Planes& in) { return chain.Render(in, mode); },
                                  mode + ": as the input", mixes));
      continue;
    }
    AddEars(
        options, mixes, mode, [&](const Planes& in) { return chain.Render(in, mode); }, hki,
        TargetLufs(tuning, mode), report);
  }
  if (options.Wants("levels")) {
    report->Add(
        HandoverFigures([&](const Planes& in, const std::string& from, const std::string& to,
                            std::size_t change) { return chain.Render(in, from, to, change); },
                        mixes));
  }
}

}  // namespace
}  // namespace kelda::sound

int main(int argc, char** argv) try {
  CLI::App app("Measures how an installation of the effect sounds.");
  kelda::sound::Options options;
  CLI::Option* const library = app.add_option("--library", options.library,
                                              "its signal library; its tuning, and the effect, "
                                              "are where an installation has them");
  CLI::Option* const peer = app.add_option("--peer", options.peer,
                                           "in its place: surround, crossfeed, loudnorm or bypass, "
                                           "with the ears of --tuning")
                                ->excludes(library);
  app.add_option("--tuning", options.tuning, "another tuning directory");
  app.add_flag("--as-input", options.as_input,
               "measure the loudness over bypass alone: its tuning has level.as_input");
  app.add_option("--mixes", options.mixes, "what make_mixes wrote")->required();
  app.add_option("--json", options.json, "also write the figures to this file");
  app.add_option("--sofa", options.sofa, "the measured ears of the tuning")->capture_default_str();
  app.add_option("--only", options.groups, "planes, ears, levels")
      ->check(CLI::IsMember(options.groups));
  CLI11_PARSE(app, argc, argv);
  if (library->empty() && peer->empty()) {
    throw std::runtime_error("needs --library or --peer");
  }
  if (options.as_input) {
    options.groups.clear();
  }
  kelda::sound::Report report;
  const auto mixes = kelda::sound::LoadMixes(options.mixes);
  if (options.peer.empty()) {
    MeasureEffect(options, mixes, &report);
  } else {
    MeasurePeer(options, mixes, &report);
  }
  report.Save(options.json);
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "sound_figures: %s\n", error.what());
  return 1;
}
