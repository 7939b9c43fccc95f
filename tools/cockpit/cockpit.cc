#include "tools/cockpit/cockpit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <tuple>
#include <utility>

#include "changeover/session.h"
#include "settings/tuning_directory.h"
#include "tools/cockpit/cpu_time.h"
#include "tools/cockpit/drops.h"
#include "tools/cockpit/project_save.h"
#include "tools/cockpit/refusal.h"
#include "tools/core/decibels.h"
#include "tools/core/decimal.h"
#include "tools/core/failure.h"
#include "tools/core/interruption.h"
#include "tools/core/text_file.h"
#include "tools/framework/device_name.h"
#include "tools/live/live_keys.h"
#include "tools/tune/tuning_directory.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

using Which = TuningModel::Which;

constexpr auto kChangeLook = std::chrono::milliseconds(4);       // while a change is on its way
constexpr auto kLongestChange = std::chrono::milliseconds(400);  // where no audio takes it
constexpr auto kStateLook = std::chrono::milliseconds(100);
constexpr auto kTapLook = std::chrono::milliseconds(100);     // and the meters' time
constexpr auto kChainRest = std::chrono::milliseconds(120);   // of a knob, before its chain is made
constexpr auto kOtherRest = std::chrono::milliseconds(1200);  // and then, of the other side
constexpr auto kTrimTime = std::chrono::milliseconds(500);
constexpr double kTrimStepDb = 0.05;
constexpr double kPercent = 100;
constexpr const char* kHrtfNames[] = {"speaker", "standard", "personalized"};
constexpr const char* kPlaneNames[] = {"FL", "FR", "FC", "SL", "SR", "BL", "BR"};

const char* NameOf(Which which) { return which == Which::kA ? "A" : "B"; }

Which SideNamed(const Json& action, const char* key = "side") {
  const auto name = action.at(key).get<std::string>();
  if (name != "A" && name != "B") {
    Refuse("there is no side " + Quoted(name));
  }
  return name == "A" ? Which::kA : Which::kB;
}

// As short as a person would write it.
Json Number(float value) { return std::stod(FormatFloat(value)); }

std::string Line(const Json& json) {
  return json.dump(-1, ' ', true, Json::error_handler_t::replace);
}

bool SameFiles(const TuningFiles& a, const TuningFiles& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return x.first == y.first && (x.second == y.second || *x.second == *y.second);
  });
}

// Whether the signal library that this process has loaded is the open one: its classes' names,
// which are part of it, are in its namespace.
bool LoadedOpenLibrary() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    const std::size_t path = line.find('/');
    if (path == std::string::npos || !line.ends_with("/libupmix-lib.so")) {
      continue;
    }
    std::ifstream file(line.substr(path), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    return bytes.find("kelda9upmix_lib") != std::string::npos;
  }
  return false;
}

UpmixMode PlayingMode(const std::string& plays) {
  if (plays.starts_with("music")) {
    return UpmixMode::Music;
  }
  return plays.starts_with("cinema") ? UpmixMode::Cinema : UpmixMode::Off;
}

}  // namespace

Cockpit::Cockpit(CockpitOptions options, TuningModel model, LiveEngine* engine, FilePlayer* player,
                 std::vector<fs::path> files)
    : options_(std::move(options)),
      engine_(engine),
      player_(player),
      files_(std::move(files)),
      tap_(engine->AddTap()),
      open_library_(LoadedOpenLibrary()),
      model_(std::move(model)),
      heard_{model_.side(Which::kA).HeardFiles(), model_.side(Which::kA).Settings(), Which::kA},
      load_at_(Clock::now()),
      server_(options_.port, {.catalogue = Catalogue,
                              .action = [this](const std::string& json) { return Act(json); },
                              .drop =
                                  [this](const std::vector<DroppedContent>& dropped) {
                                    return TakeDrop(dropped);
                                  }}) {
  const SignalsHeldBack held_back;
  changes_thread_ = std::thread(&Cockpit::RunChanges, this);
  meters_thread_ = std::thread(&Cockpit::RunMeters, this);
}

Cockpit::~Cockpit() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  changes_thread_.join();
  meters_thread_.join();
}

// ---- The terminal.

bool Cockpit::Press(char key) {
  constexpr std::pair<char, UpmixMode> kModes[] = {{'m', UpmixMode::Music},
                                                   {'c', UpmixMode::Cinema},
                                                   {'o', UpmixMode::Off},
                                                   {'a', UpmixMode::Auto}};
  const auto* const mode = std::find_if(std::begin(kModes), std::end(kModes),
                                        [&](const auto& entry) { return entry.first == key; });
  if (key != 'b' && mode == std::end(kModes)) {
    return false;
  }
  const std::lock_guard lock(mutex_);
  if (blind_) {
    return true;  // the page's test goes on
  }
  if (key == 'b') {
    model_.Edit(model_.editing() == Which::kA ? Which::kB : Which::kA);
  } else {
    Side side = model_.side(model_.editing());
    side.mode = mode->second;
    model_.SetSide(model_.editing(), std::move(side));
  }
  Changed();
  return true;
}

std::string Cockpit::Status(const LiveState& state, const Peaks& peaks) const {
  const std::lock_guard lock(mutex_);
  // What plays, and what it takes, would tell what X is.
  return blind_ ? std::string("blind test: ") + listening_
                : LiveStatus(*NameOf(model_.editing()), state, peaks);
}

void Cockpit::ShowOutput(const std::string& name) {
  const std::lock_guard lock(mutex_);
  if (name != output_) {
    output_ = name;
    PublishState();
  }
}

// ---- What does not change.

std::string Cockpit::Catalogue() {
  Json devices = Json::array();
  const std::string names = ShortDeviceNames();
  constexpr std::string_view kSeparator = ", ";
  for (std::size_t at = 0; at < names.size();) {
    const std::size_t end = std::min(names.find(kSeparator, at), names.size());
    devices.push_back(names.substr(at, end - at));
    at = end + kSeparator.size();
  }
  Json sets = Json::array();
  for (const char* const name : kKnobSets) {
    const ParameterSet& set = KnobSet(name);
    Json keys = Json::array();
    for (std::size_t i = 0; i < set.meanings.size(); ++i) {
      const ParameterMeaning& meaning = set.meanings[i];
      const upmix_lib::ParameterField& field = set.fields[i];
      keys.push_back({{"key", meaning.key},
                      {"unit", meaning.unit},
                      {"text", meaning.text},
                      {"advice", meaning.advice},
                      {"heard", meaning.heard},
                      {"min", Number(field.min)},
                      {"max", Number(field.max)},
                      {"default", Number(field.initial)}});
    }
    std::string title = set.title;
    if (&set == &LevelParameterSet()) {
      title += std::string(name).ends_with("music") ? " of music" : " of cinema";
    }
    sets.push_back({{"set", name}, {"title", title}, {"keys", std::move(keys)}});
  }
  return Line({{"product", "Kelda Upmix"},
               {"version", KELDA_VERSION},
               {"modes", kModeNames},
               {"devices", std::move(devices)},
               {"hrtfs", {kHrtfNames[1], kHrtfNames[2]}},
               {"plane_names", kPlaneNames},
               {"sets", std::move(sets)}});
}

// ---- Actions.

std::string Cockpit::Act(const std::string& text) {
  try {
    const Json action = Json::parse(text);
    const std::lock_guard lock(mutex_);
    Do(action);
    Changed();
    return Line({{"version", version_}});
  } catch (const Json::exception& error) {
    Refuse(std::string("not an action: ") + error.what());
  }
}

void Cockpit::Do(const Json& action) {
  const auto what = action.at("do").get<std::string>();
  if (what == "blind" || what == "x" || what == "answer") {
    return DoBlind(what, action);
  }
  if (what == "pause" || what == "seek" || what == "skip") {
    return DoPlayer(what, action);
  }
  if (blind_) {
    Refuse("not while the blind test runs");
  }
  const auto text = [&](const char* key) { return action.at(key).get<std::string>(); };
  if (what == "set") {
    SetOfSide(action);
  } else if (what == "knob") {
    model_.SetKnob(text("set"), text("key"), action.at("value").get<double>(),
                   action.value("gesture", ""));
  } else if (what == "reset") {
    model_.ResetKnob(text("set"), text("key"));
  } else if (what == "default") {
    model_.DefaultKnob(text("set"), text("key"));
  } else if (what == "undo") {
    model_.Undo();
  } else if (what == "redo") {
    model_.Redo();
  } else if (what == "save") {
    Save();
  } else if (what == "side") {
    model_.Edit(SideNamed(action));
  } else if (what == "copy") {
    model_.SetSide(SideNamed(action, "to"), model_.side(SideNamed(action, "from")));
  } else if (what == "match") {
    match_on_ = action.at("on").get<bool>();
  } else {
    Refuse("there is no action " + Quoted(what));
  }
}

void Cockpit::SetOfSide(const Json& action) {
  Side side = model_.side(model_.editing());
  const auto key = action.at("key").get<std::string>();
  const Json& value = action.at("value");
  if (key == "mode") {
    side.mode = static_cast<UpmixMode>(ParseSetting("mode=" + value.get<std::string>()).number);
  } else if (key == "device") {
    side.device = NameOfDevice(
        static_cast<audio_devices_t>(ParseSetting("device=" + value.get<std::string>()).number));
  } else if (key == "hrtf") {
    side.SetHrtf(
        static_cast<HrtfType>(ParseSetting("wired-hrtf=" + value.get<std::string>()).number));
  } else if (key == "equalizer") {
    side.equalizer = value.get<bool>();
  } else {
    Refuse("there is nothing to set by the name " + Quoted(key) +
           " (mode, device, hrtf, equalizer)");
  }
  model_.SetSide(model_.editing(), std::move(side));
}

void Cockpit::DoBlind(const std::string& what, const Json& action) {
  if (what == "blind") {
    const bool on = action.at("on").get<bool>();
    if (on && !blind_) {
      match_before_ = std::exchange(match_on_, true);
      blind_.emplace();
      listening_ = 'X';
    } else if (!on && blind_) {
      blind_.reset();
      match_on_ = match_before_;
    }
    return;
  }
  if (!blind_) {
    Refuse("the blind test does not run");
  }
  if (what == "answer") {
    blind_->Take(SideNamed(action));
    listening_ = 'X';
    return;
  }
  const auto side = action.at("side").get<std::string>();
  if (side != "A" && side != "B" && side != "X") {
    Refuse("there is no side " + Quoted(side));
  }
  listening_ = side[0];
}

void Cockpit::DoPlayer(const std::string& what, const Json& action) {
  if (player_ == nullptr) {
    Refuse("no files are played");
  }
  if (what == "pause") {
    player_->TogglePause();
  } else if (what == "seek") {
    constexpr double kDay = 86400;
    const double seconds = action.at("seconds").get<double>();
    if (!(seconds >= 0 && seconds <= kDay)) {
      Refuse("there is no such place in a file");
    }
    player_->SeekBy(seconds - static_cast<double>(player_->position().frame) / kSampleRateHz);
  } else {
    player_->Skip(
        static_cast<std::ptrdiff_t>(std::clamp(action.at("files").get<double>(), -1000.0, 1000.0)));
  }
}

void Cockpit::Save() {
  TuningOrigin saved = SaveSide(model_.side(model_.editing()));
  const std::string name = saved.project.string();
  model_.Saved(std::move(saved));
  Tell("info", "saved: " + name);
}

std::string Cockpit::TakeDrop(const std::vector<DroppedContent>& files) {
  const std::lock_guard one_at_a_time(drop_mutex_);
  const auto edited = [this] {
    const std::lock_guard lock(mutex_);
    if (blind_) {
      Refuse("not while the blind test runs");
    }
    return model_.side(model_.editing());
  };
  const Drop drop = ReadDrop(files, edited(), options_.scratch);
  const std::lock_guard lock(mutex_);
  if (blind_) {
    Refuse("not while the blind test runs");
  }
  drop.apply(&model_);
  Tell("info", drop.did);
  Changed();
  AddThreadCpu(&cpu_ns_);
  return Line({{"version", version_}, {"did", drop.did}});
}

// ---- State.

Which Cockpit::HeardSide() const {
  if (!blind_) {
    return model_.editing();
  }
  return listening_ == 'X' ? blind_->x() : (listening_ == 'A' ? Which::kA : Which::kB);
}

double Cockpit::TrimOf(Which which) const {
  if (!match_on_) {
    return 0;
  }
  return which == Which::kA ? match_.a_db : match_.b_db;
}

void Cockpit::Tell(const char* level, const std::string& text) {
  message_ = {{"level", level}, {"text", text}, {"id", ++messages_}};
}

void Cockpit::TellFailure(const std::function<void()>& act) {
  try {
    act();
  } catch (const std::exception& error) {
    Tell("error", error.what());
  }
}

void Cockpit::Changed() {
  ++version_;
  asked_ = wanted_ ? asked_ : Clock::now();
  wanted_ = true;
  wake_.notify_all();
  PublishState();
}

void Cockpit::PublishState() { server_.PublishState(Line(State())); }

std::string Cockpit::Why() const {
  const Side& side = model_.side(model_.editing());
  if (side.mode == UpmixMode::Off) {
    return "";
  }
  if (side.headphone() == AudioDeviceType::Other) {
    return "off: the device is " + side.device + ", and no headphone";
  }
  return side.mode == UpmixMode::Auto && PlayingMode(plays_) == UpmixMode::Off && !changing_
             ? "off: the list of applications says so"
             : "";
}

Json Cockpit::SideState(Which which) const {
  const Side& side = model_.side(which);
  Json values;
  for (const char* const name : kKnobSets) {
    const Slot slot = SlotOf(side, name);
    Json& set = values[name] = Json::object();
    for (std::size_t i = 0; i < slot.set->meanings.size(); ++i) {
      set[slot.set->meanings[i].key] = Number(slot.Value(side.files, i));
    }
  }
  return {{"mode", kModeNames[static_cast<std::size_t>(side.mode)]},
          {"device", side.device},
          {"hrtf", kHrtfNames[static_cast<std::size_t>(side.hrtf())]},
          {"equalizer", side.equalizer},
          {"tuning", side.origin->name},
          {"values", std::move(values)},
          {"changed", model_.Changed(which)}};
}

Json Cockpit::State() const {
  const auto open = [this](Json value) { return blind_ ? Json(nullptr) : std::move(value); };
  Json blind{{"on", blind_.has_value()},
             {"trials", blind_ ? blind_->trials() : 0},
             {"right", blind_ ? blind_->right() : 0},
             {"p", blind_ ? GuessingP(blind_->right(), blind_->trials()) : 1.0},
             {"last", nullptr},
             {"listening", std::string(1, listening_)}};
  if (blind_ && blind_->last()) {
    blind["last"] = {{"answer", NameOf(blind_->last()->said)},
                     {"was", NameOf(blind_->last()->was)}};
  }
  Json player;
  if (player_ != nullptr) {
    const PlayPosition now = player_->position();
    const auto seconds = [](int64_t frames) {
      return Rounded(static_cast<double>(frames) / kSampleRateHz);
    };
    player = {{"file", files_.at(now.file).filename().string()},
              {"index", now.file},
              {"files", files_.size()},
              {"position", seconds(now.frame)},
              {"total", now.total_frames ? seconds(*now.total_frames) : Json(nullptr)},
              {"paused", now.paused}};
  }
  const char* const editing = NameOf(model_.editing());
  return {{"version", version_},
          {"side", open(editing)},
          {"editing", editing},
          {"plays", open(plays_)},
          {"changing", open(changing_ || wanted_)},
          {"why", open(Why())},
          {"trouble", trouble_},
          {"sides", {{"A", SideState(Which::kA)}, {"B", SideState(Which::kB)}}},
          {"undo", model_.undo_steps()},
          {"redo", model_.redo_steps()},
          {"unsaved", model_.Unsaved(model_.editing())},
          {"project", model_.side(model_.editing()).origin->project.string()},
          {"match",
           {{"on", match_on_},
            {"a_db", Rounded(match_.a_db)},
            {"b_db", Rounded(match_.b_db)},
            {"ready", match_.ready}}},
          {"blind", std::move(blind)},
          {"player", std::move(player)},
          {"message", message_},
          {"output", output_}};
}

// ---- What is heard.

void Cockpit::RunChanges() {
  std::unique_lock lock(mutex_);
  auto published = Clock::now();
  while (!ending_) {
    AddThreadCpu(&cpu_ns_);
    wake_.wait_for(lock, changing_ ? kChangeLook : kStateLook,
                   [this] { return ending_ || (wanted_ && !changing_); });
    engine_->Poll();
    const LiveState live = engine_->State();
    const auto now = Clock::now();
    bool news = live.plays != plays_ || live.trouble != trouble_;
    if (changing_ && (!live.changing || now - sent_ > kLongestChange)) {
      changing_ = false;
      if (applications_changed_) {  // the effect has the directory with the new list now
        applications_changed_ = false;
        TellFailure([&] { engine_->Set({Setting::Key::kReloadApps, 0, ""}); });
      }
      heard_after_ms_.reset();
      if (!live.changing && live.trouble.empty()) {
        heard_after_ms_ = std::chrono::duration<double, std::milli>(now - sent_asked_).count();
      }
      news = true;
    }
    if (live.trouble != trouble_ && !live.trouble.empty()) {
      Tell("error", live.trouble);
    }
    plays_ = live.plays;
    trouble_ = live.trouble;
    if (wanted_ && !changing_) {
      wanted_ = false;
      TellFailure([this] { MakeHeard(); });
      news = true;
    }
    constexpr auto kPlayerTime = std::chrono::seconds(1);
    if (news || (player_ != nullptr && now - published >= kPlayerTime)) {
      published = now;
      PublishState();
    }
  }
}

void Cockpit::MakeHeard() {
  const Which which = HeardSide();
  const Side& side = model_.side(which);
  Heard next{side.HeardFiles(), side.Settings(), which};
  const bool rewrites = !SameFiles(next.files, heard_.files);
  if (rewrites) {
    WriteTuning(next.files);
  }
  bool sounds = rewrites;
  for (const Setting& setting : next.settings) {
    const bool known =
        std::any_of(heard_.settings.begin(), heard_.settings.end(), [&](const Setting& other) {
          return other.key == setting.key && other.number == setting.number &&
                 other.text == setting.text;
        });
    if (!known) {
      engine_->Set(setting);
      sounds = true;
    }
  }
  if (rewrites) {
    engine_->SetTuning(TuningFolder(tunings_));
    const auto applications = [](const TuningFiles& files) {
      return *files.at(tuning_file::kAppList.name);
    };
    applications_changed_ |= applications(next.files) != applications(heard_.files);
  }
  heard_ = std::move(next);
  if (sounds || TrimOf(which) != trim_db_) {
    trim_db_ = TrimOf(which);
    engine_->SetTrim(trim_db_);
  }
  if (sounds) {
    changing_ = true;
    sent_ = Clock::now();
    sent_asked_ = asked_;
  }
}

void Cockpit::WriteTuning(const TuningFiles& files) {
  std::vector<TuningFile> list;
  for (const auto& [name, bytes] : files) {
    list.push_back({name, *bytes});
  }
  WriteTuningDirectory(TuningFolder(tunings_ + 1), list);
  ++tunings_;
  // The standby that follows what is heard may load it once more, but nothing before it.
  constexpr uint64_t kKept = 8;
  if (tunings_ > kKept) {
    std::error_code ignored;
    fs::remove_all(TuningFolder(tunings_ - kKept), ignored);
  }
}

fs::path Cockpit::TuningFolder(uint64_t number) const {
  return options_.scratch / (kTuningFolder + std::to_string(number));
}

// ---- Meters.

void Cockpit::RunMeters() {
  constexpr std::size_t kMostFrames = 4800;
  std::vector<float> frames(tap_.frames.width() * kMostFrames);
  std::size_t since = 0;  // frames since the meters were shown last
  std::unique_lock lock(mutex_);
  while (!ending_) {
    wake_.wait_for(lock, kTapLook, [this] { return ending_; });
    lock.unlock();
    try {
      UseChains();
    } catch (const std::exception& error) {
      const std::lock_guard telling(mutex_);
      Tell("error", error.what());
      PublishState();
    }
    while (const std::size_t count = tap_.frames.Pop(frames.data(), kMostFrames)) {
      since += count;
      frames.resize(tap_.frames.width() * count);
      Measure(frames);
      frames.resize(tap_.frames.width() * kMostFrames);
    }
    FollowMatch();
    PublishMeters(since > 0);
    since = 0;
    AddThreadCpu(&cpu_ns_);
    lock.lock();
  }
}

void Cockpit::Measure(const std::vector<float>& frames) {
  const std::size_t count = frames.size() / tap_.frames.width();
  std::vector<float> in(kChannels * count), out(kChannels * count);
  const auto finite = [](float sample) { return std::isfinite(sample) ? sample : 0.0f; };
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t c = 0; c < kChannels; ++c) {
      in[kChannels * i + c] = finite(frames[2 * kChannels * i + c]);
      out[kChannels * i + c] = finite(frames[2 * kChannels * i + kChannels + c]);
    }
  }
  const bool watched = server_.listeners() > 0;
  if (watched) {
    in_.Add(in.data(), count);
    out_.Add(out.data(), count);
  }
  const auto [match, side, heard] = [this] {
    const std::lock_guard lock(mutex_);
    const bool steady = !wanted_ && !changing_ && !chains_due_;
    const bool rests = Clock::now() - chains_used_ < kOtherRest;
    return std::tuple(match_on_ && !rests, HeardSide(),
                      steady ? std::optional<AudibleSide>({HeardSide(), trim_db_}) : std::nullopt);
  }();
  runs_.Hear(heard);
  runs_.Process(in.data(), out.data(), count, match || (watched && side == Which::kA),
                match || (watched && side == Which::kB));
}

// A chain is made anew when its knobs have come to rest.
void Cockpit::UseChains() {
  std::array<ChainFiles, 2> files;
  {
    const std::lock_guard lock(mutex_);
    const auto now = Clock::now();
    if (chains_version_ != version_ || chains_play_ != plays_) {
      chains_version_ = version_;
      chains_play_ = plays_;
      chains_changed_ = now;
      chains_due_ = true;
    }
    if (!chains_due_ || changing_ || now - chains_changed_ < kChainRest) {
      return;
    }
    chains_due_ = false;
    for (const Which which : {Which::kA, Which::kB}) {
      files[static_cast<std::size_t>(which)] =
          ChainFilesOf(model_.side(which), PlayingMode(plays_));
    }
  }
  for (const Which which : {Which::kA, Which::kB}) {
    if (runs_.Use(which, files[static_cast<std::size_t>(which)])) {
      chains_used_ = Clock::now();
    }
  }
}

void Cockpit::FollowMatch() {
  const std::lock_guard lock(mutex_);
  const Match now = runs_.MatchNow();
  const bool was_ready = std::exchange(match_.ready, now.ready);
  if (now.ready) {
    match_ = now;  // else the last gains stay
  }
  const auto time = Clock::now();
  const double wanted = TrimOf(HeardSide());
  if (!wanted_ && !changing_ && std::fabs(wanted - trim_db_) > kTrimStepDb &&
      time - trimmed_ > kTrimTime) {
    trimmed_ = time;
    trim_db_ = wanted;
    engine_->SetTrim(wanted);
    PublishState();
  } else if (was_ready != now.ready) {
    PublishState();
  }
}

void Cockpit::PublishMeters(bool audio) {
  const auto now = Clock::now();
  const double seconds = std::chrono::duration<double>(now - load_at_).count();
  if (seconds >= 1) {
    const uint64_t cpu_ns = cpu_ns_ + server_.cpu_ns();
    load_ = static_cast<double>(cpu_ns - load_cpu_ns_) / 1e9 / seconds;
    load_cpu_ns_ = cpu_ns;
    load_at_ = now;
  }
  if (server_.listeners() == 0) {
    return;
  }
  const LiveState live = engine_->State();
  Json in = in_.Take(), out = out_.Take();
  const std::lock_guard lock(mutex_);
  const bool blind = blind_.has_value();
  const Which heard = HeardSide();
  Json planes, limiter;
  if (open_library_ && audio && !blind) {
    const SideRun& run = runs_.run(heard);
    if (const auto powers = run.planes()) {
      planes = Json::array();
      for (const double power : *powers) {
        planes.push_back(power > 1e-12 ? Rounded(PowerToDb(power)) : Json(nullptr));
      }
    }
    if (const auto gain = run.limiter_gain()) {
      limiter = Rounded(ToDb(*gain));
    }
  }
  const auto shown = [&](Json value) { return blind ? Json(nullptr) : std::move(value); };
  const double other = TrimOf(heard == Which::kA ? Which::kB : Which::kA);
  const double match_lu =
      match_.difference_lu + (heard == Which::kA ? trim_db_ - other : other - trim_db_);
  server_.PublishMeters(
      Line({{"in", audio ? std::move(in) : Json(nullptr)},
            {"out", shown(audio ? std::move(out) : Json(nullptr))},
            {"match_lu", shown(match_on_ && match_.ready ? Rounded(match_lu) : Json(nullptr))},
            {"load", shown(Rounded(kPercent * static_cast<double>(live.cycles.load)))},
            {"worst", Rounded(kPercent * static_cast<double>(live.cycles.worst))},
            {"slow", live.cycles.slow},
            {"xruns", live.cycles.xruns},
            {"latency_ms", Rounded(1000.0 * changeover::Session::kLatencyFrames / kSampleRateHz)},
            {"cockpit_load", Rounded(kPercent * load_)},
            {"heard_after_ms",
             shown(heard_after_ms_ ? Json(std::round(*heard_after_ms_)) : Json(nullptr))},
            {"planes", std::move(planes)},
            {"limiter_db", std::move(limiter)}}));
}

}  // namespace kelda::tools
