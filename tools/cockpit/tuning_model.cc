#include "tools/cockpit/tuning_model.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "effect/device_types.h"
#include "settings/tuning_directory.h"
#include "tools/cockpit/refusal.h"
#include "tools/core/decimal.h"
#include "tools/core/failure.h"
#include "tools/core/text_file.h"
#include "tools/framework/device_name.h"
#include "upmix-lib/binaural/hrir_format.h"
#include "upmix-lib/binaural/hrir_set.h"
#include "upmix-lib/equalizer/equalizer_file.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<std::byte>;

constexpr std::size_t kMostSteps = 500;
constexpr std::size_t kMaxFileBytes = std::size_t{16} << 20;
constexpr const char* kEarsSuffix = ".hki";
constexpr std::size_t kRoomOffset = sizeof(upmix_lib::DataHeader) + sizeof(upmix_lib::HrirInfo);

// The first word of a configuration file.
std::string NamedIn(const TuningFiles& files, const std::string& config) {
  const auto found = files.find(config);
  if (found == files.end()) {
    return "";
  }
  const std::string text(reinterpret_cast<const char*>(found->second->data()),
                         found->second->size());
  constexpr const char* kSpaces = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kSpaces);
  return begin == std::string::npos
             ? ""
             : text.substr(begin, text.find_first_of(kSpaces, begin) - begin);
}

struct FixedSlot {
  const char* key;
  const ParameterSet& (*set)();
  const char* file;
};
constexpr FixedSlot kFixedSlots[] = {
    {"music.standard", MusicParameterSet, tuning_file::kStandardMusic.name},
    {"music.personalized", MusicParameterSet, tuning_file::kPersonalizedMusic.name},
    {"cinema.standard", CinemaParameterSet, tuning_file::kStandardCinema.name},
    {"cinema.personalized", CinemaParameterSet, tuning_file::kPersonalizedCinema.name},
    {"level.music", LevelParameterSet, tuning_file::kMusicLevel.name},
    {"level.cinema", LevelParameterSet, tuning_file::kCinemaLevel.name},
};

std::string TableOf(const std::string& key) { return key.substr(0, key.rfind('.')); }

// Whether the file is what the signal library loads.
void Check(const Slot& slot, const TuningFiles& files, const fs::path& directory) {
  using namespace upmix_lib;
  const Bytes& bytes = *files.at(slot.file);
  const DataKind& kind = slot.set->kind != nullptr ? *slot.set->kind : kHrirKind;
  Status status = CheckContainer(bytes, kind);
  if (status == kOk && bytes.size() < slot.offset_bytes + slot.set->size_bytes) {
    status = kDataTooShort;
  }
  if (status == kOk && slot.set->kind == nullptr) {
    HrirSet set;
    status = ParseHrirSet(bytes, set);
  } else if (status == kOk) {
    status = CheckFields(bytes, slot.set->fields);
  }
  if (status != kOk) {
    throw Failure(ExitCode::kInput, (directory / slot.file).string() + ": damaged, status " +
                                        std::to_string(static_cast<int>(status)) +
                                        "; kelda doctor says more");
  }
}

std::size_t IndexOf(const ParameterSet& set, const std::string& key) {
  for (std::size_t i = 0; i < set.meanings.size(); ++i) {
    if (key == set.meanings[i].key) {
      return i;
    }
  }
  Refuse("there is no key " + Quoted(key) + " in " + set.title);
}

// Whether `kelda tune build` decides it: the level control of a project with level.as_input.
bool IsMeasured(const Side& side, const ParameterSet& set, std::string_view key) {
  return &set == &LevelParameterSet() && (key == "strength" || key == "gain_db") &&
         side.origin->sources.level_as_input;
}

}  // namespace

std::shared_ptr<const Bytes> Shared(Bytes bytes) {
  return std::make_shared<const Bytes>(std::move(bytes));
}

std::shared_ptr<const Bytes> SharedText(const std::string& text) {
  const auto bytes = std::as_bytes(std::span(text));
  return Shared({bytes.begin(), bytes.end()});
}

// ---- Origins.

std::shared_ptr<TuningOrigin> OpenProject(const fs::path& project, const WarningReceiver& warn,
                                          const FileResolver& resolve) {
  auto origin = std::make_shared<TuningOrigin>();
  origin->name = project.filename().string();
  origin->project = project;
  const auto read = [](const fs::path& path) { return ReadWholeFile(path, kMaxFileBytes); };
  origin->texts[project] = read(project);
  origin->sources = ReadTuningProject(project, resolve);
  const TuningBuild build = BuildTuning(origin->sources, warn);
  for (const TuningFile& file : build.files) {
    origin->files[file.name] = Shared(file.bytes);
  }
  for (const Slot& slot : SlotsOf(origin->files)) {
    if (const fs::path preset = PresetOf(*origin, slot); !preset.empty()) {
      origin->texts[preset] = read(preset);
    }
  }
  return origin;
}

std::shared_ptr<TuningOrigin> OpenTuningDirectory(const fs::path& directory) {
  auto origin = std::make_shared<TuningOrigin>();
  origin->name = directory.filename().string();
  const auto read = [&](const std::string& name) {
    if (name.find('/') != std::string::npos) {
      throw Failure(ExitCode::kInput,
                    directory.string() + ": names a file elsewhere: " + Quoted(name));
    }
    origin->files[name] = SharedText(ReadWholeFile(directory / name, kMaxFileBytes));
  };
  for (const kelda::TuningFile& file : kTuningFiles) {
    read(file.name);
    if (file.kind == TuningFileKind::HkiConfig || file.kind == TuningFileKind::BaConfig) {
      read(NamedIn(origin->files, file.name));
    }
  }
  for (const Slot& slot : SlotsOf(origin->files)) {
    Check(slot, origin->files, directory);
  }
  return origin;
}

fs::path PresetOf(const TuningOrigin& origin, const Slot& slot) {
  if (origin.project.empty()) {
    return {};
  }
  const TuningProject& sources = origin.sources;
  const std::string table = TableOf(slot.key), last = slot.key.substr(table.size() + 1);
  if (table == "level") {
    return sources.levels.at(last);
  }
  if (const auto upmix = sources.upmixes.find(table); upmix != sources.upmixes.end()) {
    return last == "standard" ? upmix->second.standard : upmix->second.personalized;
  }
  const auto ears = sources.ears.find(table.substr(table.find('.') + 1));
  return ears == sources.ears.end() ? fs::path() : ears->second.room;
}

bool SharePreset(const TuningOrigin& origin, const Slot& one, const Slot& other) {
  if (one.set != other.set) {
    return false;
  }
  const fs::path preset = PresetOf(origin, one), others = PresetOf(origin, other);
  if (!preset.empty() || !others.empty()) {
    return fs::weakly_canonical(preset) == fs::weakly_canonical(others);
  }
  const auto same = [&] {
    const auto a = one.Struct(origin.files), b = other.Struct(origin.files);
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
  };
  const bool upmix = one.set == &MusicParameterSet() || one.set == &CinemaParameterSet();
  return one.key == other.key || (upmix && same());
}

// ---- Slots.

std::span<const std::byte> Slot::Struct(const TuningFiles& files) const {
  return std::span(*files.at(file)).subspan(offset_bytes, set->size_bytes);
}

float Slot::Value(const TuningFiles& files, std::size_t index) const {
  return ReadParameter(Struct(files), set->fields[index]);
}

std::vector<Slot> SlotsOf(const TuningFiles& files) {
  std::vector<Slot> slots;
  for (const auto& [name, bytes] : files) {
    if (name.ends_with(kEarsSuffix)) {
      slots.push_back({"hrtf." + name.substr(0, name.size() - std::strlen(kEarsSuffix)) + ".room",
                       &RoomParameterSet(), name, kRoomOffset});
    }
  }
  for (const FixedSlot& fixed : kFixedSlots) {
    if (files.contains(fixed.file)) {
      slots.push_back({fixed.key, &fixed.set(), fixed.file, 0});
    }
  }
  return slots;
}

const ParameterSet& KnobSet(std::string_view name) {
  if (name == "music") {
    return MusicParameterSet();
  }
  if (name == "cinema") {
    return CinemaParameterSet();
  }
  if (name == "level-music" || name == "level-cinema") {
    return LevelParameterSet();
  }
  if (name == "room") {
    return RoomParameterSet();
  }
  Refuse("there is no set " + Quoted(name) + " (music, cinema, level-music, level-cinema, room)");
}

Slot SlotOf(const Side& side, std::string_view set) {
  const ParameterSet& parameters = KnobSet(set);
  std::string file = side.EarsFile();
  if (&parameters != &RoomParameterSet()) {
    std::string key(set);
    if (const std::size_t dash = key.find('-'); dash != std::string::npos) {
      key[dash] = '.';
    } else {
      key += side.hrtf() == HrtfType::Personalized ? ".personalized" : ".standard";
    }
    file =
        std::find_if(std::begin(kFixedSlots), std::end(kFixedSlots), [&](const FixedSlot& fixed) {
          return key == fixed.key;
        })->file;
  }
  for (const Slot& slot : SlotsOf(side.files)) {
    if (slot.file == file) {
      return slot;
    }
  }
  Refuse("the tuning has no file " + Quoted(file));
}

// ---- Sides.

AudioDeviceType Side::headphone() const {
  return DeviceTypeOf(static_cast<audio_devices_t>(ParseDevice(device).value_or(0)));
}

const char* Side::headphone_name() const {
  return headphone() == AudioDeviceType::Bluetooth ? "bluetooth" : "wired";
}

HrtfType Side::hrtf() const {
  return headphone() == AudioDeviceType::Bluetooth ? bluetooth_hrtf : wired_hrtf;
}

void Side::SetHrtf(HrtfType type) {
  (headphone() == AudioDeviceType::Bluetooth ? bluetooth_hrtf : wired_hrtf) = type;
}

std::string Side::EarsFile() const {
  return NamedIn(files, std::string(headphone_name()) + ".hki.config");
}

std::string Side::EqualizerFile() const {
  return NamedIn(files, std::string(headphone_name()) + ".ba.config");
}

TuningFiles Side::HeardFiles() const {
  if (equalizer) {
    return files;
  }
  static const auto flat = Shared(upmix_lib::BuildEqualizerFile(
      {.form = upmix_lib::EqualizerForm::kBands, .preamp_db = 0, .curves = {{}}}));
  TuningFiles heard = files;
  for (auto& [name, bytes] : heard) {
    if (name.ends_with(".ba")) {
      bytes = flat;
    }
  }
  return heard;
}

std::vector<Setting> Side::Settings() const {
  std::vector<Setting> settings{ParseSetting("device=" + device)};
  settings.push_back({Setting::Key::kWiredHrtf, static_cast<uint32_t>(wired_hrtf), ""});
  settings.push_back({Setting::Key::kBluetoothHrtf, static_cast<uint32_t>(bluetooth_hrtf), ""});
  settings.insert(settings.end(), other_settings.begin(), other_settings.end());
  settings.push_back({Setting::Key::kMode, static_cast<uint32_t>(mode), ""});
  return settings;
}

Side MakeSide(std::shared_ptr<TuningOrigin> origin, const std::vector<Setting>& settings) {
  Side side;
  side.files = origin->files;
  side.origin = std::move(origin);
  const auto named = [&](const char* config) {
    return NamedIn(side.files, config) == "personalized.hki" ? HrtfType::Personalized
                                                             : HrtfType::Standard;
  };
  side.wired_hrtf = named(tuning_file::kWiredHki.name);
  side.bluetooth_hrtf = named(tuning_file::kBluetoothHki.name);
  for (const Setting& setting : settings) {
    switch (setting.key) {
      case Setting::Key::kMode:
        side.mode = static_cast<UpmixMode>(setting.number);
        break;
      case Setting::Key::kDevice:
        side.device = NameOfDevice(static_cast<audio_devices_t>(setting.number));
        break;
      case Setting::Key::kWiredHrtf:
        side.wired_hrtf = static_cast<HrtfType>(setting.number);
        break;
      case Setting::Key::kBluetoothHrtf:
        side.bluetooth_hrtf = static_cast<HrtfType>(setting.number);
        break;
      default:
        side.other_settings.push_back(setting);
    }
  }
  return side;
}

// ---- The model.

TuningModel::TuningModel(Side a, Side b) : now_{{std::move(a), std::move(b)}} {}

void TuningModel::Step(const std::string& gesture) {
  if (gesture.empty() || gesture != gesture_ || undo_.empty()) {
    undo_.push_back(now_);
    if (undo_.size() > kMostSteps) {
      undo_.erase(undo_.begin());
    }
  }
  redo_.clear();
  gesture_ = gesture;
}

// Writes to every slot that has the same preset.
void TuningModel::Write(Side* side, const std::string& set, std::size_t index, float value) const {
  const Slot turned = SlotOf(*side, set);
  for (const Slot& slot : SlotsOf(side->files)) {
    if (slot.key != turned.key && !SharePreset(*side->origin, slot, turned)) {
      continue;
    }
    Bytes bytes = *side->files.at(slot.file);
    WriteParameter(std::span(bytes).subspan(slot.offset_bytes, slot.set->size_bytes),
                   slot.set->fields[index], value);
    upmix_lib::Seal(bytes, slot.set->kind != nullptr ? *slot.set->kind : upmix_lib::kHrirKind);
    side->files[slot.file] = Shared(std::move(bytes));
  }
}

void TuningModel::SetKnob(const std::string& set, const std::string& key, double value,
                          const std::string& gesture) {
  const ParameterSet& parameters = KnobSet(set);
  const std::size_t index = IndexOf(parameters, key);
  const upmix_lib::ParameterField& field = parameters.fields[index];
  const auto number = static_cast<float>(value);
  if (!(number >= field.min && number <= field.max)) {
    Refuse(key + " is out of range (" + FormatFloat(number) + ", " +
           FormatRange(field, parameters.meanings[index]) + ")");
  }
  if (IsMeasured(edited(), parameters, key)) {
    Refuse(key + " cannot be turned: the project has level.as_input = true");
  }
  Side changed = edited();
  Write(&changed, set, index, number);
  Step(gesture);
  edited() = std::move(changed);
}

void TuningModel::ResetKnob(const std::string& set, const std::string& key) {
  const Slot slot = SlotOf(edited(), set);
  const std::size_t index = IndexOf(*slot.set, key);
  if (!edited().origin->files.contains(slot.file)) {
    return DefaultKnob(set, key);  // of ears that were dropped
  }
  SetKnob(set, key, double{slot.Value(edited().origin->files, index)}, "");
}

void TuningModel::DefaultKnob(const std::string& set, const std::string& key) {
  const ParameterSet& parameters = KnobSet(set);
  SetKnob(set, key, double{parameters.fields[IndexOf(parameters, key)].initial}, "");
}

void TuningModel::SetKnobs(const std::string& set, std::span<const std::byte> parameters) {
  const ParameterSet& known = KnobSet(set);
  Side changed = edited();
  for (std::size_t i = 0; i < known.meanings.size(); ++i) {
    if (!IsMeasured(changed, known, known.meanings[i].key)) {
      Write(&changed, set, i, ReadParameter(parameters, known.fields[i]));
    }
  }
  Step("");
  edited() = std::move(changed);
}

void TuningModel::SetSide(Which which, Side side) {
  Step("");
  now_.sides[static_cast<std::size_t>(which)] = std::move(side);
}

void TuningModel::Undo() {
  if (undo_.empty()) {
    Refuse("there is nothing to undo");
  }
  redo_.push_back(std::exchange(now_, std::move(undo_.back())));
  undo_.pop_back();
  gesture_.clear();
}

void TuningModel::Redo() {
  if (redo_.empty()) {
    Refuse("there is nothing to redo");
  }
  undo_.push_back(std::exchange(now_, std::move(redo_.back())));
  redo_.pop_back();
  gesture_.clear();
}

std::vector<std::string> TuningModel::Changed(Which which) const {
  std::vector<std::string> changed;
  const Side& shown = side(which);
  for (const char* const set : kKnobSets) {
    const Slot slot = SlotOf(shown, set);
    for (std::size_t i = 0; i < slot.set->meanings.size(); ++i) {
      const bool known = shown.origin->files.contains(slot.file);
      const float before = known ? slot.Value(shown.origin->files, i) : slot.set->fields[i].initial;
      if (slot.Value(shown.files, i) != before) {
        changed.push_back(std::string(set) + "." + slot.set->meanings[i].key);
      }
    }
  }
  for (const auto& [key, file] : shown.dropped) {
    changed.push_back(key);
  }
  return changed;
}

std::size_t TuningModel::Unsaved(Which which) const {
  const Side& shown = side(which);
  std::size_t count = shown.dropped.size();
  std::vector<Slot> counted;
  for (const Slot& slot : SlotsOf(shown.files)) {
    if (!shown.origin->files.contains(slot.file) ||
        std::any_of(counted.begin(), counted.end(),
                    [&](const Slot& other) { return SharePreset(*shown.origin, slot, other); })) {
      continue;
    }
    counted.push_back(slot);
    for (std::size_t i = 0; i < slot.set->meanings.size(); ++i) {
      count += slot.Value(shown.files, i) != slot.Value(shown.origin->files, i) ? 1 : 0;
    }
  }
  return count;
}

void TuningModel::Saved(TuningOrigin saved) {
  Side& side = edited();
  *side.origin = std::move(saved);
  if (!side.dropped.empty()) {  // whoever went back would have files that no project names
    side.dropped.clear();
    undo_.clear();
    redo_.clear();
  }
  gesture_.clear();
}

}  // namespace kelda::tools
