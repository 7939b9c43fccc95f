#include "tools/replay/turn_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <span>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "tools/core/failure.h"
#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

using changeover::Turn;

constexpr const char* kLog = "kelda live";
constexpr int kVersion = 1;
constexpr std::size_t kMaxBytes = std::size_t{256} << 20;
constexpr std::size_t kMaxTuningFileBytes = std::size_t{64} << 20;

// By Turn::End, and by ParameterSet; no sound has the first two, which are levels.
constexpr const char* kEnds[] = {"heard", "at once", "dropped", "not loaded", "no memory"};
constexpr const char* kHeadphones[kParameterSets] = {
    nullptr, nullptr, "wired", "wired, personalized", "bluetooth", "bluetooth, personalized",
};

uint64_t Frame(uint64_t period) { return kPeriodFrames * period; }

uint64_t Period(const Json& line, const char* key) {
  const auto frame = line.at(key).get<uint64_t>();
  if (frame % kPeriodFrames != 0) {
    throw std::invalid_argument(std::string(key) + " is no multiple of " +
                                std::to_string(kPeriodFrames));
  }
  return frame / kPeriodFrames;
}

template <std::size_t kCount>
std::size_t IndexOf(const std::string& name, const char* const (&names)[kCount]) {
  const auto* const found =
      std::find_if(std::begin(names), std::end(names),
                   [&](const char* known) { return known != nullptr && name == known; });
  if (found == std::end(names)) {
    throw std::invalid_argument("unknown value " + Quoted(name));
  }
  return static_cast<std::size_t>(found - std::begin(names));
}

Json ToJson(const Turn& turn) {
  Json line{{"frame", Frame(turn.end)},
            {"turn", kEnds[static_cast<std::size_t>(turn.outcome)]},
            {"sound", changeover::NameOf(turn.sound).text},
            {"begun", Frame(turn.begun)},
            {"roll_in", Frame(turn.first)},
            {"lead_end", Frame(turn.lead_end)},
            {"lead_power", turn.lead_power},
            {"crossfade", Frame(turn.end)},
            {"mode", kModeNames[static_cast<std::size_t>(turn.sound.mode)]},
            {"tuning", turn.sound.tuning},
            {"instance", turn.instance},
            {"parked", turn.parked}};
  if (turn.sound.headphone) {
    line["headphone"] = kHeadphones[static_cast<std::size_t>(*turn.sound.headphone)];
  }
  return line;
}

Turn ToTurn(const Json& line) {
  Turn turn;
  turn.outcome = Turn::End{static_cast<int>(IndexOf(line.at("turn").get<std::string>(), kEnds))};
  turn.sound.mode =
      UpmixMode{static_cast<uint32_t>(IndexOf(line.at("mode").get<std::string>(), kModeNames))};
  if (turn.sound.mode == UpmixMode::Auto) {
    throw std::invalid_argument("auto is no mode that is heard");
  }
  if (line.contains("headphone")) {
    turn.sound.headphone = ParameterSet{
        static_cast<int>(IndexOf(line.at("headphone").get<std::string>(), kHeadphones))};
  }
  turn.sound.tuning = line.at("tuning").get<uint32_t>();
  turn.instance = line.at("instance").get<unsigned>();
  turn.parked = line.at("parked").get<int>();
  turn.begun = Period(line, "begun");
  turn.first = Period(line, "roll_in");
  turn.lead_end = Period(line, "lead_end");
  turn.lead_power = line.at("lead_power").get<float>();
  turn.end = Period(line, "crossfade");
  if (turn.first > turn.begun || turn.first > turn.end) {
    throw std::invalid_argument("a roll-in that begins after its end");
  }
  return turn;
}

// A tuning's files by their names, but for captures, which the effect leaves there too.
std::map<std::string, std::string> ReadFiles(const std::filesystem::path& directory) {
  std::map<std::string, std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.is_regular_file() && entry.path().extension() != ".pcm") {
      files[entry.path().filename()] = ReadWholeFile(entry.path(), kMaxTuningFileBytes);
    }
  }
  if (error) {
    throw Failure(ExitCode::kInput, directory.string() + ": " + error.message());
  }
  return files;
}

std::filesystem::path CopyOf(const std::filesystem::path& log, std::size_t number) {
  return TurnLog::KeptBeside(log) / std::to_string(number);
}

// Those of the log that is replaced; and nothing else, whoever put it there.
void ForgetCopies(const std::filesystem::path& log) {
  std::error_code error;
  for (std::size_t number = 0; std::filesystem::remove_all(CopyOf(log, number), error) > 0;) {
    if (error) {
      throw Failure(ExitCode::kOutput, TurnLog::KeptBeside(log).string() + ": " + error.message());
    }
    ++number;
  }
}

TrimStep ToTrimStep(const Json& line) {
  const TrimStep step{line.at("frame").get<uint64_t>(), line.at("trim").get<float>()};
  if (!(step.gain >= 0 && step.gain <= kMostTrim)) {
    throw std::invalid_argument("a trim that is no gain of up to 4");
  }
  return step;
}

}  // namespace

TurnLog::TurnLog(const std::filesystem::path& path, const std::filesystem::path& tuning)
    : path_(path) {
  constexpr mode_t kMode = 0666;
  const Files files = ReadFiles(tuning);
  descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kMode);
  if (descriptor_ < 0) {
    throw Failure(ExitCode::kOutput, path.string() + ": " + std::strerror(errno));
  }
  try {
    ForgetCopies(path);
    if (ftruncate(descriptor_, 0) != 0 && errno != EINVAL) {  // a pipe has nothing to cut off
      throw Failure(ExitCode::kOutput, path.string() + ": " + std::strerror(errno));
    }
    KeepFiles(files);
    Write({{"log", kLog},
           {"version", kVersion},
           {"tuning", std::filesystem::absolute(tuning).string()},
           {"kept", kept_}});
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

TurnLog::~TurnLog() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

std::filesystem::path TurnLog::KeptBeside(const std::filesystem::path& log) {
  return log.string() + ".tunings";
}

void TurnLog::Keep(const std::filesystem::path& directory) { KeepFiles(ReadFiles(directory)); }

// As a copy of its own, unless there is one with the same files.
void TurnLog::KeepFiles(const Files& files) {
  std::size_t hash = 0;
  for (const auto& [name, content] : files) {
    constexpr std::size_t kOdd = 0x9e3779b9;  // 2^32 over the golden ratio
    hash = kOdd * (hash ^ std::hash<std::string>()(name)) ^ std::hash<std::string>()(content);
  }
  std::size_t number = 0;
  while (number < copies_.size() &&
         (copies_[number] != hash || ReadFiles(CopyOf(path_, number)) != files)) {
    ++number;
  }
  if (number == copies_.size()) {
    const std::filesystem::path copy = CopyOf(path_, number);
    std::error_code error;
    std::filesystem::create_directories(copy, error);
    if (error) {
      throw Failure(ExitCode::kOutput, copy.string() + ": " + error.message());
    }
    for (const auto& [name, content] : files) {
      WriteWholeFile(copy / name, std::as_bytes(std::span(content)));
    }
    copies_.push_back(hash);
  }
  kept_ = number;
}

std::filesystem::path TurnLog::kept() const { return CopyOf(path_, kept_); }

void TurnLog::Add(uint64_t frame, const Setting& setting) {
  Write({{"frame", frame}, {"set", ToText(setting)}});
}

void TurnLog::Add(const Turn& turn) { Write(ToJson(turn)); }

void TurnLog::Add(const TrimStep& step) { Write({{"frame", step.frame}, {"trim", step.gain}}); }

void TurnLog::AddTuning(uint64_t frame, const std::filesystem::path& directory) {
  Write({{"frame", frame},
         {"tuning", std::filesystem::absolute(directory).string()},
         {"kept", kept_}});
}

void TurnLog::AddNote(uint64_t frame, const std::string& text) {
  Write({{"frame", frame}, {"note", text}});
}

void TurnLog::Write(const Json& line) {
  if (descriptor_ < 0) {
    return;
  }
  const std::string text = line.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
  if (!WriteAll(descriptor_, std::as_bytes(std::span(text)))) {
    const int error = errno;
    close(descriptor_);
    descriptor_ = -1;
    throw Failure(ExitCode::kOutput, path_.string() + ": " + std::strerror(error));
  }
}

LoggedRun ReadTurnLog(const std::filesystem::path& path) {
  const std::string text = ReadTextFile(path, kMaxBytes);
  LoggedRun logged;
  FileProblems problems(path.string());
  std::string_view rest(text);
  rest = rest.substr(0, rest.rfind('\n') + 1);
  for (std::size_t number = 1; !rest.empty(); ++number) {
    try {
      const Json line = Json::parse(TakeLine(&rest));
      if (number == 1) {
        if (line.at("log").get<std::string>() != kLog ||
            line.at("version").get<int>() != kVersion) {
          throw std::invalid_argument("it is not of version 1");
        }
        logged.tunings.push_back(CopyOf(path, line.at("kept").get<std::size_t>()));
      } else if (line.contains("turn")) {
        logged.turns.push_back(ToTurn(line));
      } else if (line.contains("kept")) {
        logged.tunings.push_back(CopyOf(path, line.at("kept").get<std::size_t>()));
      } else if (line.contains("trim")) {
        logged.trims.push_back(ToTrimStep(line));
        const std::size_t count = logged.trims.size();
        if (count > 1 && logged.trims[count - 2].frame > logged.trims[count - 1].frame) {
          throw std::invalid_argument("a trim before the last one");
        }
      }
    } catch (const std::exception& error) {
      if (number == 1) {
        throw Failure(ExitCode::kInput,
                      path.string() + ": not a log of kelda live: " + error.what());
      }
      problems.Add(number, error.what());
    }
  }
  if (logged.tunings.empty()) {
    throw Failure(ExitCode::kInput, path.string() + ": not a log of kelda live");
  }
  problems.ThrowIfAny();
  return logged;
}

}  // namespace kelda::tools
