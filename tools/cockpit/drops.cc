#include "tools/cockpit/drops.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "tools/cockpit/refusal.h"
#include "tools/core/failure.h"
#include "tools/core/file_problems.h"
#include "tools/core/output_file.h"
#include "tools/core/text_file.h"
#include "tools/ears/hrir_acceptance.h"
#include "tools/ears/measured_ears.h"
#include "tools/ears/sofa_hrirs.h"
#include "tools/equalizer/equalizer_design.h"
#include "tools/equalizer/equalizer_text.h"
#include "tools/presets/preset_toml.h"
#include "tools/presets/toml_file.h"
#include "upmix-lib/equalizer/equalizer_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFiles = 100;
constexpr std::string_view kHdf5 = "\x89HDF";
constexpr const char* kProjectKeys[] = {"applications", "hrtf",   "wired", "bluetooth",
                                        "music",        "cinema", "level"};

// The folder that the dropped files are in while they are read.
class DropFolder {
 public:
  explicit DropFolder(const fs::path& scratch) : path_((scratch / "drop-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
      throw Failure(ExitCode::kOutput, path_ + ": cannot be made: " + std::strerror(errno));
    }
  }
  ~DropFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  DropFolder(const DropFolder&) = delete;
  DropFolder& operator=(const DropFolder&) = delete;

  // Where a file of this name is, which may name folders, but none outside.
  fs::path Place(const std::string& name) const {
    const fs::path relative(name);
    const bool leaves = std::any_of(relative.begin(), relative.end(),
                                    [](const fs::path& part) { return part == ".."; });
    if (name.empty() || name.find('\0') != std::string::npos ||
        name.find('\\') != std::string::npos || relative.is_absolute() || leaves ||
        relative.filename().empty()) {
      Refuse("not a name for a dropped file: " + Quoted(name));
    }
    return (fs::path(path_) / relative).lexically_normal();
  }
  fs::path Write(const DroppedContent& file) const {
    const fs::path path = Place(file.name);
    fs::create_directories(path.parent_path());
    WriteWholeFile(path, std::as_bytes(std::span(file.bytes)));
    return path;
  }
  // A message without this folder.
  std::string Told(std::string message) const {
    for (std::size_t at = 0; (at = message.find(path_ + "/", at)) != std::string::npos;) {
      message.erase(at, path_.size() + 1);
    }
    return message;
  }

 private:
  std::string path_;
};

bool IsProject(const toml::table& table) {
  return std::any_of(std::begin(kProjectKeys), std::end(kProjectKeys),
                     [&](const char* key) { return table.contains(key); });
}

// The one set of knobs that has all of the preset's keys.
std::string SetOf(const toml::table& table, const std::string& name, const Side& side) {
  std::vector<const ParameterSet*> fitting;
  for (const ParameterSet& set : ParameterSets()) {
    const auto knows = [&](std::string_view key) {
      return std::any_of(set.meanings.begin(), set.meanings.end(),
                         [&](const ParameterMeaning& meaning) { return key == meaning.key; });
    };
    if (!table.empty() && std::all_of(table.begin(), table.end(), [&](const auto& entry) {
          return knows(entry.first.str());
        })) {
      fitting.push_back(&set);
    }
  }
  if (fitting.empty()) {
    Refuse(name +
           ": its keys are those of no preset (music upmix, cinema upmix, level, room), nor "
           "of a project");
  }
  if (fitting.size() > 1) {
    Refuse(name + ": its keys are those of " + fitting[0]->title + " and of " + fitting[1]->title +
           "; another key would tell which is meant");
  }
  if (fitting[0] == &MusicParameterSet()) {
    return "music";
  }
  if (fitting[0] == &CinemaParameterSet()) {
    return "cinema";
  }
  if (fitting[0] == &RoomParameterSet()) {
    return "room";
  }
  if (side.mode != UpmixMode::Music && side.mode != UpmixMode::Cinema) {
    Refuse(name + ": a level control is for music or for cinema; choose one of these modes first");
  }
  return side.mode == UpmixMode::Music ? "level-music" : "level-cinema";
}

// A change of the side that is edited when it is made.
auto Changing(auto change) {
  return [change](TuningModel* model) {
    Side side = model->side(model->editing());
    change(&side);
    model->SetSide(model->editing(), std::move(side));
  };
}

Drop ReadPresetDrop(const fs::path& path, const toml::table& table, const Side& side) {
  const std::string name = path.filename().string();
  const std::string set = SetOf(table, name, side);
  const std::vector<std::byte> parameters = ReadPreset(path, KnobSet(set));
  return {name + " is now the preset of " + set,
          [set, parameters](TuningModel* model) { model->SetKnobs(set, parameters); }};
}

Drop ReadEqualizerDrop(const fs::path& path, const DroppedContent& file, const Side& side) {
  const std::string name = path.filename().string(), device = side.headphone_name();
  const EqualizerText text = ReadEqualizerText(path);
  const EqualizerDesign design = DesignEqualizer(text, path.string());
  const auto bytes = Shared(upmix_lib::BuildEqualizerFile(design.tuning));
  const DroppedFile dropped{name, std::make_shared<const std::string>(file.bytes)};
  std::string did = name + " is now the equalizer of " + device;
  did += side.hrtf() == HrtfType::Personalized ? "" : ", heard with personalized ears";
  did += text.warnings.empty() ? "" : "; " + text.warnings;
  return {did, Changing([=](Side* changed) {
            changed->files[device + ".ba"] = bytes;
            changed->files[device + ".ba.config"] = SharedText(device + ".ba\n");
            changed->dropped[device + ".equalizer"] = dropped;
          })};
}

Drop ReadEarsDrop(const fs::path& path, const DroppedContent& file, const Side& side) {
  const std::string name = path.filename().string(), device = side.headphone_name();
  const std::string type = side.hrtf() == HrtfType::Personalized ? "personalized" : "standard";
  HrirOptions options;
  const auto known = side.origin->sources.ears.find(type);
  if (known != side.origin->sources.ears.end()) {
    options = known->second.options;
    options.source.clear();  // of the other ears
    options.licence.clear();
  }
  const auto room = SlotOf(side, "room").Struct(side.files);
  std::memcpy(&options.room, room.data(), sizeof(options.room));
  const HrirDesign design =
      DesignHrirs(ReadMeasuredEars(path), path.string(), options, [](double) {});
  CheckHrirs(design, path.string());
  const auto bytes = Shared(upmix_lib::EncodeHrirSet(design.set));
  const DroppedFile dropped{name, std::make_shared<const std::string>(file.bytes)};
  return {name + " are now the ears for " + type, Changing([=](Side* changed) {
            changed->files[type + ".hki"] = bytes;
            changed->files[device + ".hki.config"] = SharedText(type + ".hki\n");
            changed->dropped["hrtf." + type + ".sofa"] = dropped;
          })};
}

// The files that a project names.
std::set<fs::path> NamedBy(const TuningProject& project) {
  std::set<fs::path> named;
  const auto add = [&](const fs::path& path) {
    if (!path.empty()) {
      named.insert(fs::weakly_canonical(path));
    }
  };
  add(project.applications);
  for (const auto& [type, ears] : project.ears) {
    add(ears.sofa);
    add(ears.room);
  }
  for (const auto& [name, device] : project.devices) {
    add(device.equalizer);
  }
  for (const auto& [mode, presets] : project.upmixes) {
    add(presets.standard);
    add(presets.personalized);
  }
  for (const auto& [mode, preset] : project.levels) {
    add(preset);
  }
  return named;
}

Drop ReadProjectDrop(const fs::path& path, const std::set<fs::path>& dropped, const Side& side) {
  const std::set<fs::path> running = NamedBy(side.origin->sources);
  const fs::path home = side.origin->project.parent_path();
  const FileResolver resolve = [&](const std::string& name) -> fs::path {
    fs::path here = (path.parent_path() / name).lexically_normal();
    if (dropped.contains(here)) {
      return here;
    }
    const fs::path there = fs::weakly_canonical(home / name);
    return running.contains(there) ? there : fs::path();
  };
  std::string warnings;
  const std::shared_ptr<TuningOrigin> origin = OpenProject(
      path, [&](const std::string& lines) { warnings += "; " + lines; }, resolve);
  origin->project.clear();  // there is no such file where it could be saved
  origin->texts.clear();
  return {"the tuning is now " + origin->name + warnings, Changing([origin](Side* changed) {
            changed->origin = origin;
            changed->files = origin->files;
            changed->dropped.clear();
          })};
}

Drop Read(const std::vector<DroppedContent>& files, const Side& side, const DropFolder& folder) {
  std::set<fs::path> paths;
  for (const DroppedContent& file : files) {
    if (!paths.insert(folder.Write(file)).second) {
      Refuse("two dropped files have the name " + Quoted(file.name));
    }
  }
  std::vector<fs::path> projects;
  for (const fs::path& path : paths) {
    if (path.extension() == ".toml" && IsProject(ReadToml(path))) {
      projects.push_back(path);
    }
  }
  if (projects.size() == 1) {
    return ReadProjectDrop(projects[0], paths, side);
  }
  if (files.size() > 1) {
    Refuse(projects.empty() ? "several files were dropped, and none of them is a tuning project"
                            : "more than one of the dropped files is a tuning project");
  }
  const fs::path& path = *paths.begin();
  if (path.extension() == ".sofa" || files[0].bytes.starts_with(kHdf5)) {
    return ReadEarsDrop(path, files[0], side);
  }
  if (path.extension() == ".toml") {
    return ReadPresetDrop(path, ReadToml(path), side);
  }
  return ReadEqualizerDrop(path, files[0], side);
}

}  // namespace

Drop ReadDrop(const std::vector<DroppedContent>& files, const Side& side, const fs::path& scratch) {
  if (files.empty() || files.size() > kMostFiles) {
    Refuse(files.empty() ? "nothing was dropped" : "too many files were dropped, 100 at most");
  }
  const DropFolder folder(scratch);
  try {
    return Read(files, side, folder);
  } catch (const Failure& failure) {
    throw Failure(failure.code(), folder.Told(failure.what()));
  } catch (const fs::filesystem_error& error) {
    throw Failure(ExitCode::kOutput, folder.Told(error.what()));
  }
}

}  // namespace kelda::tools
