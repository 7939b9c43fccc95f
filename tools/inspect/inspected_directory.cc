#include "tools/inspect/inspected_directory.h"

#include <algorithm>
#include <set>

#include "tools/core/failure.h"
#include "tools/core/printable.h"
#include "tools/core/text_file.h"
#include "tools/inspect/app_list_names.h"
#include "tools/tune/tuning_directory.h"
#include "upmix-lib/files/config_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAppList = "tunedapp_list";
constexpr const char* kConfigs[] = {"wired.hki.config", "bluetooth.hki.config", "wired.ba.config",
                                    "bluetooth.ba.config"};
constexpr const char* kBlobs[] = {"upmix.music.hps.bin",  "upmix.music.hpp.bin",
                                  "upmix.cinema.hps.bin", "upmix.cinema.hpp.bin",
                                  "upl.music.bin",        "upl.cinema.bin"};

// The names that the engine looks for, then those that the configurations name.
std::vector<std::string> WantedNames(const fs::path& directory) {
  std::vector<std::string> names{kAppList};
  names.insert(names.end(), std::begin(kConfigs), std::end(kConfigs));
  names.insert(names.end(), std::begin(kBlobs), std::end(kBlobs));
  for (const char* config : kConfigs) {
    std::string path;
    if (upmix_lib::ReadConfigFile(directory.c_str(), config, path) == upmix_lib::kOk) {
      const std::string name = fs::path(path).filename().string();
      if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
      }
    }
  }
  return names;
}

std::set<std::string> PresentNames(const fs::path& directory) {
  std::set<std::string> names;
  std::error_code error;
  for (fs::directory_iterator at(directory, error), end; !error && at != end; at.increment(error)) {
    names.insert(at->path().filename().string());
  }
  if (error) {
    throw Failure(ExitCode::kInput, directory.string() + ": cannot be read: " + error.message());
  }
  names.erase(kTuningManifest);
  return names;
}

std::vector<std::string> Packages(const fs::path& list) {
  constexpr size_t kMostBytes = size_t{64} << 20;
  std::error_code error;
  if (!fs::is_regular_file(list, error)) {
    return {};
  }
  return PossiblePackages(ReadWholeFile(list, kMostBytes));
}

}  // namespace

InspectedDirectory InspectDirectory(const fs::path& directory, const EffectLibrary& library) {
  InspectedDirectory inspected{directory, {}, {}};
  std::set<std::string> unused = PresentNames(directory);
  for (const std::string& name : WantedNames(directory)) {
    if (unused.erase(name) == 0) {
      inspected.entries.push_back({name, DirectoryEntry::State::kMissing, {}});
      continue;
    }
    InspectedFile file = InspectFile(directory / name);
    const auto state =
        file.problem.empty() ? DirectoryEntry::State::kUsable : DirectoryEntry::State::kFaulty;
    inspected.entries.push_back({name, state, std::move(file)});
  }
  for (const std::string& name : unused) {
    inspected.entries.push_back({name, DirectoryEntry::State::kUnused, {}});
  }
  inspected.decisions = AskDecisions(library, Packages(directory / kAppList));
  return inspected;
}

std::string InspectedDirectory::Problems() const {
  std::string lines;
  const auto add = [&](const std::string& line) {
    if (lines.find(line) == std::string::npos) {
      lines += (lines.empty() ? "" : "\n") + line;
    }
  };
  for (const DirectoryEntry& entry : entries) {
    if (entry.state == DirectoryEntry::State::kFaulty) {
      add((path / Printable(entry.name)).string() + ": " + entry.file.problem);
    }
  }
  for (const Decision& decision : decisions.decisions) {
    if (decision.hrtf == "tuned") {
      for (const std::string& problem : decision.problems) {
        add(path.string() + ": " + decision.device + ", " + decision.mode + ": " + problem);
      }
    }
  }
  return lines;
}

const char* Name(DirectoryEntry::State state) {
  switch (state) {
    case DirectoryEntry::State::kUsable:
      return "ok";
    case DirectoryEntry::State::kMissing:
      return "missing";
    case DirectoryEntry::State::kFaulty:
      return "faulty";
    case DirectoryEntry::State::kUnused:
      return "unused";
  }
  return "";
}

}  // namespace kelda::tools
