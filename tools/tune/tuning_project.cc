#include "tools/tune/tuning_project.h"

#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"
#include "tools/presets/toml_reader.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

constexpr const char* kHrtfTypes[] = {"standard", "personalized", "speaker"};
constexpr const char* kDevices[] = {"wired", "bluetooth"};
constexpr const char* kModes[] = {"music", "cinema"};
constexpr std::size_t kMaxPathShown = 4096;

class ProjectReader {
 public:
  ProjectReader(const fs::path& path, const toml::table& table, FileResolver resolve)
      : resolve_(std::move(resolve)), problems_(path.string()), root_(table, "", &problems_) {}

  TuningProject Read() {
    TuningProject project;
    project.applications = RequiredFile(&root_, "applications");
    ReadEars(&project);
    ReadDevices(&project);
    for (const char* mode : kModes) {
      TuningProject::Presets& presets = project.upmixes[mode];
      if (auto table = root_.Table(mode)) {
        presets.standard = File(&*table, "standard");
        presets.personalized = File(&*table, "personalized");
        table->RefuseOtherKeys();
      }
    }
    auto levels = root_.Table("level");
    for (const char* mode : kModes) {
      project.levels[mode] = levels ? File(&*levels, mode) : fs::path();
    }
    if (levels) {
      project.level_as_input = levels->Flag("as_input").value_or(false);
      levels->RefuseOtherKeys();
    }
    root_.RefuseOtherKeys();
    problems_.ThrowIfAny();
    return project;
  }

 private:
  // The file that the key names; adds a problem if it cannot be opened.
  fs::path File(TomlReader* table, const char* key) const {
    const std::optional<std::string> name = table->Text(key);
    if (name == "") {
      table->Refuse(key, "is empty");
    }
    return Opened(table, key, name.value_or(""));
  }

  fs::path RequiredFile(TomlReader* table, const char* key) const {
    return Opened(table, key, table->RequiredText(key));
  }

  fs::path Opened(TomlReader* table, const char* key, const std::string& name) const {
    if (name.empty()) {
      return {};
    }
    fs::path path = resolve_(name);
    if (path.empty()) {
      table->Refuse(key, "names a file that it may not name here (" + Quoted(name) + ")");
      return {};
    }
    if (const std::string reason = WhyUnreadable(path); !reason.empty()) {
      table->Refuse(key, "cannot be read: " + Quoted(path.string(), kMaxPathShown) + ": " + reason);
    }
    return path;
  }

  void ReadEars(TuningProject* project) {
    auto hrtf = root_.Table("hrtf");
    if (!hrtf) {
      return;
    }
    for (const char* type : kHrtfTypes) {
      auto table = hrtf->Table(type);
      if (!table) {
        continue;
      }
      TuningProject::Ears& ears = project->ears[type];
      ears.sofa = RequiredFile(&*table, "sofa");
      ears.room = File(&*table, "room");
      HrirOptions& options = ears.options;
      options.taps =
          table->WholeNumber("taps", kMinHrirTaps, kMaxFreeFieldTaps).value_or(kDefaultHrirTaps);
      options.symmetric = table->Flag("symmetric").value_or(false);
      options.colour_removed = table->Number("less_colour", 0, 1).value_or(0);
      options.source = table->Text("source").value_or("");
      options.licence = table->Text("licence").value_or("");
      table->RefuseOtherKeys();
    }
    hrtf->RefuseOtherKeys();
  }

  void ReadDevices(TuningProject* project) {
    for (const char* name : kDevices) {
      auto table = root_.Table(name);
      if (!table) {
        root_.Refuse(name, "is missing; it names the ears and the equalizer of the device");
        continue;
      }
      TuningProject::Device& device = project->devices[name];
      device.hrtf = table->RequiredText("hrtf");
      device.equalizer = RequiredFile(&*table, "equalizer");
      if (!device.hrtf.empty() && !project->ears.contains(device.hrtf)) {
        table->Refuse("hrtf", "has no table of its own (" + Quoted(device.hrtf) +
                                  ", known: those of [hrtf.standard], [hrtf.personalized] and "
                                  "[hrtf.speaker] that are given)");
      }
      table->RefuseOtherKeys();
    }
  }

  FileResolver resolve_;
  FileProblems problems_;
  TomlReader root_;
};

}  // namespace

TuningProject ReadTuningProject(const fs::path& path, const FileResolver& resolve) {
  const toml::table table = ReadToml(path);
  const FileResolver from_folder = [&](const std::string& name) {
    return path.parent_path() / name;
  };
  return ProjectReader(path, table, resolve ? resolve : from_folder).Read();
}

std::string ProjectTemplate() {
  return R"(# A tuning directory. Paths are relative to this file. Remove the '#' of a line to
# change its default.

# Which applications play in which mode: lines "package,OFF", ",MUSIC" or ",CINEMA".
applications = "applications.txt"

# Ears, as *.sofa files: a table for each of the HRTF types standard, personalized and speaker
# that the listener is to have.
[hrtf.standard]
sofa = "ears.sofa"
#room = "room.toml"        # see `kelda tune hrtf --room-template`; if not given, the default room
#taps = 256                # length of each response, 64 to 1024
#symmetric = false         # make the left and the right half of the head alike
#less_colour = 0.0         # share of the colour common to both ears to remove, 0 to 1
#source = ""               # who measured what; if not given, as the file says
#licence = ""              # of the measurement; if not given, as the file says

#[hrtf.personalized]
#sofa = "my-ears.sofa"

# The HRTF type that a device starts with, and its equalizer for personalized listening.
[wired]
hrtf = "standard"
equalizer = "wired ParametricEQ.txt"

[bluetooth]
hrtf = "standard"
equalizer = "bluetooth ParametricEQ.txt"

# Presets, see `kelda tune upmix --template` and so on; if not given, the defaults. "standard" is
# for the HRTF types standard and speaker.
[music]
#standard = "music.toml"
#personalized = "music.toml"

[cinema]
#standard = "cinema.toml"
#personalized = "cinema.toml"

[level]
#music = "level.toml"
#cinema = "level.toml"
#as_input = false          # true: no levelling, but the gain with which music is as loud as it was
)";
}

}  // namespace kelda::tools
