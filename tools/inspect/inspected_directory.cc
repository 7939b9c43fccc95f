#include "tools/inspect/inspected_directory.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "settings/tuning_directory.h"
#include "tools/core/failure.h"
#include "tools/core/text_file.h"
#include "tools/inspect/app_list_names.h"
#include "tools/tune/tuning_directory.h"
#include "upmix-lib/files/config_file.h"

namespace kelda::tools {
namespace {

namespace fs = std::filesystem;

struct WantedFile {
  std::string name;
  const char* kind;  // of file_kind
  std::string purpose;
};

// The kind of a file of the table, and of the file that it names; null if it names none.
struct Kinds {
  const char* own;
  const char* named;
};

Kinds KindsOf(TuningFileKind kind) {
  switch (kind) {
    case TuningFileKind::HkiConfig:
      return {file_kind::kConfig, file_kind::kHrirs};
    case TuningFileKind::BaConfig:
      return {file_kind::kConfig, file_kind::kEqualizer};
    case TuningFileKind::MusicParameters:
      return {file_kind::kMusic, nullptr};
    case TuningFileKind::CinemaParameters:
      return {file_kind::kCinema, nullptr};
    case TuningFileKind::LevelParameters:
      return {file_kind::kLevel, nullptr};
    case TuningFileKind::AppList:
      return {file_kind::kAppList, nullptr};
  }
  return {};
}

// The files that the engine looks for, then those that the configurations name.
std::vector<WantedFile> WantedFiles(const fs::path& directory) {
  std::vector<WantedFile> files;
  std::vector<WantedFile> named;
  const auto known = [](const std::vector<WantedFile>& list, const std::string& name) {
    return std::any_of(list.begin(), list.end(),
                       [&](const WantedFile& file) { return file.name == name; });
  };
  for (const kelda::TuningFile& file : kTuningFiles) {
    const Kinds kinds = KindsOf(file.kind);
    files.push_back({file.name, kinds.own, file.title});
    std::string path;
    if (kinds.named != nullptr &&
        upmix_lib::ReadConfigFile(directory.c_str(), file.name, path) == upmix_lib::kOk) {
      const std::string name = fs::path(path).filename().string();
      if (!known(named, name)) {
        named.push_back({name, kinds.named, std::string("named by ") + file.name});
      }
    }
  }
  for (WantedFile& file : named) {
    if (!known(files, file.name)) {
      files.push_back(std::move(file));
    }
  }
  return files;
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
  constexpr std::size_t kMostBytes = std::size_t{64} << 20;
  try {
    return PossiblePackages(ReadWholeFile(list, kMostBytes));
  } catch (const Failure&) {
    return {};  // it is missing, or its entry says what is wrong with it
  }
}

}  // namespace

std::vector<DirectoryEntry> ReadTuning(const fs::path& directory) {
  std::vector<DirectoryEntry> entries;
  std::set<std::string> unused = PresentNames(directory);
  for (const WantedFile& wanted : WantedFiles(directory)) {
    if (unused.erase(wanted.name) == 0) {
      entries.push_back({wanted.name, DirectoryEntry::State::kMissing, {}, wanted.purpose});
      continue;
    }
    InspectedFile file = InspectFile(directory / wanted.name);
    if (file.problem.empty() && file.kind != wanted.kind) {
      file = {file.kind, "it holds " + file.kind + ", not " + wanted.kind, "", {}};
    }
    const auto state =
        file.problem.empty() ? DirectoryEntry::State::kUsable : DirectoryEntry::State::kFaulty;
    entries.push_back({wanted.name, state, std::move(file), wanted.purpose});
  }
  for (const std::string& name : unused) {
    entries.push_back({name, DirectoryEntry::State::kUnused, {}, ""});
  }
  return entries;
}

InspectedDirectory InspectDirectory(const fs::path& directory, const EffectLibrary& library) {
  return {directory, ReadTuning(directory),
          AskDecisions(directory, library, Packages(directory / tuning_file::kAppList.name))};
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

std::string Note(const DirectoryEntry& entry) {
  switch (entry.state) {
    case DirectoryEntry::State::kUsable: {
      std::string_view text = entry.file.text;
      return std::string(TakeLine(&text));
    }
    case DirectoryEntry::State::kFaulty:
      return entry.file.problem;
    case DirectoryEntry::State::kMissing:
      return entry.name == tuning_file::kAppList.name ? "no application is listed" : "";
    case DirectoryEntry::State::kUnused:
      return "the engine does not look for it";
  }
  return "";
}

}  // namespace kelda::tools
