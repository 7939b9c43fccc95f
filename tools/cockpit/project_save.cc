#include "tools/cockpit/project_save.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/cockpit/toml_edit.h"
#include "tools/core/failure.h"
#include "tools/core/output_file.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxTextBytes = std::size_t{16} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// In the order of a project's template.
constexpr std::string_view kProjectOrder[] = {
    "sofa", "room",      "taps",     "symmetric",    "less_colour", "source", "licence",
    "hrtf", "equalizer", "standard", "personalized", "music",       "cinema", "as_input"};

struct FileChange {
  fs::path path;
  std::optional<std::string> before;  // none: there is no file yet
  std::string after;
};

std::string_view BytesOf(const std::string& text) { return text; }

class Saver {
 public:
  explicit Saver(const Side& side) : side_(side), saved_(*side.origin) {
    if (saved_.project.empty()) {
      throw Failure(ExitCode::kUsage,
                    "there is no project to save to; begin with --project FILE.toml");
    }
  }

  TuningOrigin Save() {
    SavePresets();
    SaveDropped();
    Replace();
    for (const FileChange& change : changes_) {
      saved_.texts[change.path] = change.after;
    }
    for (auto& [name, bytes] : saved_.files) {
      if (const auto now = side_.files.find(name); now != side_.files.end()) {
        bytes = now->second;
      }
    }
    for (const auto& [name, bytes] : side_.files) {
      saved_.files[name] = bytes;
    }
    return std::move(saved_);
  }

 private:
  // The text as it is to be, which may have been changed already.
  std::string& Text(const fs::path& path) {
    for (FileChange& change : changes_) {
      if (change.path == path) {
        return change.after;
      }
    }
    const std::string& read = saved_.texts.at(path);
    return changes_.emplace_back(FileChange{path, read, read}).after;
  }

  void Edit(const fs::path& path, const auto& edit) {
    std::string& text = Text(path);
    const bool marked = BytesOf(text).starts_with(kByteOrderMark);
    TomlEdit toml(path.string(), marked ? text.substr(kByteOrderMark.size()) : text);
    edit(&toml);
    text = (marked ? std::string(kByteOrderMark) : "") + toml.text();
  }

  void Name(const std::string& project_key, const std::string& file) {
    const std::size_t dot = project_key.rfind('.');
    Edit(saved_.project, [&](TomlEdit* toml) {
      toml->SetText(project_key.substr(0, dot), project_key.substr(dot + 1), file, kProjectOrder);
    });
  }

  // A file beside the project that is not there yet, for content of `name`.
  fs::path NewFile(const std::string& name) const {
    const fs::path wanted = saved_.project.parent_path() / name;
    const auto taken = [&](const fs::path& path) {
      return fs::exists(fs::symlink_status(path)) ||
             std::any_of(changes_.begin(), changes_.end(),
                         [&](const FileChange& change) { return change.path == path; });
    };
    fs::path path = wanted;
    for (int number = 2; taken(path); ++number) {
      path = wanted.parent_path() /
             (wanted.stem().string() + "-" + std::to_string(number) + wanted.extension().string());
    }
    return path;
  }

  bool Differs(const Slot& slot) const {
    const auto now = slot.Struct(side_.files), then = slot.Struct(saved_.files);
    return !std::equal(now.begin(), now.end(), then.begin(), then.end());
  }

  void SavePresets() {
    std::vector<Slot> done;
    const std::vector<Slot> slots = SlotsOf(side_.files);
    for (const Slot& slot : slots) {
      if (std::any_of(done.begin(), done.end(),
                      [&](const Slot& other) { return SharePreset(*side_.origin, slot, other); })) {
        continue;
      }
      done.push_back(slot);
      if (!saved_.files.contains(slot.file) || Differs(slot)) {
        SavePreset(slot, slots);
      }
    }
  }

  void SavePreset(const Slot& slot, const std::vector<Slot>& slots) {
    std::vector<std::string_view> order;
    for (const ParameterMeaning& meaning : slot.set->meanings) {
      order.emplace_back(meaning.key);
    }
    const fs::path preset = PresetOf(*side_.origin, slot);
    fs::path path = preset;
    if (preset.empty()) {
      path = NewFile(NameFor(slot, slots));
      changes_.push_back(
          {path, std::nullopt,
           std::string("# ") + slot.set->title +
               ": what differs from the defaults, see `kelda tune " +
               (slot.set->kind == nullptr ? "hrtf --room-template"
                                          : slot.set->name + std::string(" --template")) +
               "`.\n"});
    }
    Edit(path, [&](TomlEdit* toml) {
      for (std::size_t i = 0; i < slot.set->meanings.size(); ++i) {
        const float value = slot.Value(side_.files, i);
        const float before = saved_.files.contains(slot.file) ? slot.Value(saved_.files, i)
                                                              : slot.set->fields[i].initial;
        if (value != before) {
          toml->SetNumber("", slot.set->meanings[i].key, value, order);
        }
      }
    });
    if (!preset.empty()) {
      return;
    }
    for (const Slot& other : slots) {
      if (other.key == slot.key || SharePreset(*side_.origin, slot, other)) {
        Name(other.key, path.filename().string());
        SetPreset(other, path);
      }
    }
  }

  // "music.toml", or "music-personalized.toml" where the standard ears have another preset.
  std::string NameFor(const Slot& slot, const std::vector<Slot>& slots) const {
    std::string name = slot.key;
    if (slot.set == &RoomParameterSet()) {
      name = "room-" + slot.file.substr(0, slot.file.find('.'));
    } else if (slot.set != &LevelParameterSet() &&
               std::all_of(slots.begin(), slots.end(), [&](const Slot& other) {
                 return other.set != slot.set || other.key == slot.key ||
                        SharePreset(*side_.origin, slot, other);
               })) {
      name = slot.key.substr(0, slot.key.find('.'));
    }
    std::replace(name.begin(), name.end(), '.', '-');
    return name + ".toml";
  }

  void SetPreset(const Slot& slot, const fs::path& path) {
    const std::size_t dot = slot.key.rfind('.');
    const std::string table = slot.key.substr(0, dot), last = slot.key.substr(dot + 1);
    TuningProject& sources = saved_.sources;
    if (table == "level") {
      sources.levels[last] = path;
    } else if (slot.set == &RoomParameterSet()) {
      sources.ears[table.substr(table.find('.') + 1)].room = path;
    } else {
      (last == "standard" ? sources.upmixes[table].standard : sources.upmixes[table].personalized) =
          path;
    }
  }

  void SaveDropped() {
    for (const auto& [key, file] : side_.dropped) {
      const fs::path path = NewFile(file.name);
      changes_.push_back({path, std::nullopt, *file.bytes});
      Name(key, path.filename().string());
      const std::string table = key.substr(0, key.rfind('.'));
      if (key == table + ".equalizer") {
        saved_.sources.devices[table].equalizer = path;
        continue;
      }
      const std::string type = table.substr(table.find('.') + 1);
      TuningProject::Ears& ears = saved_.sources.ears[type];
      ears.sofa = path;
      ears.options.source.clear();
      ears.options.licence.clear();
      Edit(saved_.project, [&](TomlEdit* toml) {
        toml->Remove(table, "source");  // of the other ears
        toml->Remove(table, "licence");
      });
      for (auto& [name, device] : saved_.sources.devices) {
        if (name == side_.headphone_name() && side_.EarsFile() == type + ".hki" &&
            device.hrtf != type) {
          Edit(saved_.project, [&, &name = name](TomlEdit* toml) {
            toml->SetText(name, "hrtf", type, kProjectOrder);
          });
          device.hrtf = type;
        }
      }
    }
  }

  // Everything is ready and checked before the first file is replaced.
  void Replace() {
    std::deque<OutputFile> outputs;
    for (const FileChange& change : changes_) {
      Check(change);
      outputs.emplace_back(change.path).Write(std::as_bytes(std::span(change.after)));
    }
    std::size_t done = 0;
    try {
      for (; done < changes_.size(); ++done) {
        Check(changes_[done]);
        outputs[done].Commit();
      }
    } catch (...) {
      while (done > 0) {
        PutBack(changes_[--done]);
      }
      throw;
    }
  }

  static void Check(const FileChange& change) {
    if (!change.before) {
      if (fs::exists(fs::symlink_status(change.path))) {
        throw Failure(ExitCode::kOutput, change.path.string() + ": exists, and is not replaced");
      }
    } else if (ReadWholeFile(change.path, kMaxTextBytes) != *change.before) {
      throw Failure(ExitCode::kOutput, change.path.string() +
                                           ": was changed by somebody else meanwhile; nothing was "
                                           "saved");
    }
  }

  static void PutBack(const FileChange& change) noexcept {
    try {
      if (change.before) {
        WriteWholeFile(change.path, std::as_bytes(std::span(*change.before)));
      } else {
        fs::remove(change.path);
      }
    } catch (const std::exception&) {
      // The first failure is the one that is told.
    }
  }

  const Side& side_;
  TuningOrigin saved_;
  std::deque<FileChange> changes_;
};

}  // namespace

TuningOrigin SaveSide(const Side& side) { return Saver(side).Save(); }

}  // namespace kelda::tools
