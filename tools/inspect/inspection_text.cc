#include "tools/inspect/inspection_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "tools/core/printable.h"

namespace kelda::tools {
namespace {

// `text`, filled up with blanks to `width`.
std::string Column(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + " ";
}

std::string FormatEntries(const std::vector<DirectoryEntry>& entries) {
  std::string text;
  for (const DirectoryEntry& entry : entries) {
    text.append("  ")
        .append(Column(Printable(entry.name), 24))
        .append(Column(Name(entry.state), 7))
        .append(Note(entry))
        .append("\n");
  }
  return text;
}

bool SameOutcome(const Decision& a, const Decision& b) {
  return a.stages == b.stages && a.problems == b.problems;
}

const Decision& Find(const DecisionTable& table, const std::string& device, const std::string& hrtf,
                     const std::string& mode) {
  return *std::find_if(table.decisions.begin(), table.decisions.end(), [&](const Decision& one) {
    return one.device == device && one.hrtf == hrtf && one.mode == mode;
  });
}

constexpr const char* kShownModes[] = {"off", "music", "cinema"};

std::string FormatDecision(const Decision& decision) {
  std::string text;
  const std::string indent(32, ' ');
  bool first = true;
  for (const Stage& stage : decision.stages) {
    if (stage.runs) {
      text += (first ? "" : indent) + stage.name;
      if (!stage.files.empty()) {
        text +=
            std::string(6 - std::min<std::size_t>(stage.name.size(), 5), ' ') + FormatFiles(stage);
      }
      text += '\n';
      first = false;
    }
  }
  for (const std::string& problem : decision.problems) {
    text.append(indent).append("! ").append(problem).append("\n");
  }
  return first ? "nothing\n" + text : text;
}

std::string FormatDecisions(const DecisionTable& table) {
  std::string text;
  const Decision& other = Find(table, "other", "tuned", "off");
  bool alike = true;
  for (const Decision& decision : table.decisions) {
    alike = alike && (decision.device != "other" || SameOutcome(decision, other));
  }
  if (alike) {
    text +=
        "  " + Column("other", 9) + Column("any", 14) + Column("any", 6) + FormatDecision(other);
  }
  for (const char* device : {"other", "wired", "bluetooth"}) {
    const std::string tuned = TunedHrtf(table, device);
    for (const char* hrtf : {"tuned", "standard", "personalized"}) {
      const bool repeats = std::string(hrtf) == "tuned" && !tuned.empty();
      if ((alike && std::string(device) == "other") || repeats) {
        continue;
      }
      for (const char* mode : kShownModes) {
        text += "  " + Column(device, 9) +
                Column(hrtf + std::string(tuned == hrtf ? " *" : ""), 14) + Column(mode, 6) +
                FormatDecision(Find(table, device, hrtf, mode));
      }
    }
  }
  return text + "  * as the tuning's own configuration says\n";
}

std::string FormatApps(const DecisionTable& table) {
  std::string text =
      "  " + Column("application", 34) + Column("other", 9) + Column("wired", 22) + "bluetooth\n";
  for (const AppDecision& app : table.apps) {
    text += "  " + Column(ShownName(table, app), 34) + Column(app.other, 9) +
            Column(WithFlag(app.wired, app.flagged_wired), 22) +
            WithFlag(app.bluetooth, app.flagged_bluetooth) + "\n";
  }
  for (const std::string& package : table.unaskable) {
    text += "  " + Column(package, 34) + "holds an '&', so that no phone can name it\n";
  }
  return text;
}

Json DecisionJson(const Decision& decision) {
  Json json{{"device", decision.device}, {"hrtf", decision.hrtf},
            {"mode", decision.mode},     {"runs", RunningMode(decision.stages)},
            {"stages", Json::array()},   {"problems", decision.problems}};
  for (const Stage& stage : decision.stages) {
    Json files = Json::array();
    for (const StageFile& file : stage.files) {
      Json entry{{"role", file.role}, {"file", file.file}};
      if (file.role != "bin") {
        entry["names"] = file.names;
      }
      files.push_back(std::move(entry));
    }
    json["stages"].push_back(
        {{"name", stage.name}, {"runs", stage.runs}, {"files", std::move(files)}});
  }
  return json;
}

}  // namespace

std::string FormatFiles(const Stage& stage) {
  std::string text;
  for (const StageFile& file : stage.files) {
    text += (text.empty() ? "" : ", ") + file.file;
    if (file.role != "bin") {
      text += " > " + (file.names.empty() ? "nothing" : file.names);
    }
  }
  return text;
}

std::string ShownName(const DecisionTable& table, const AppDecision& app) {
  return &app == &table.apps.front() ? "(not listed)" : app.package;
}

std::string WithFlag(const std::string& plain, const std::string& flagged) {
  return plain == flagged ? plain : plain + ", flag 1: " + flagged;
}

std::string TunedHrtf(const DecisionTable& table, const std::string& device) {
  for (const char* hrtf : {"standard", "personalized"}) {
    if (std::all_of(std::begin(kShownModes), std::end(kShownModes), [&](const char* mode) {
          return SameOutcome(Find(table, device, "tuned", mode), Find(table, device, hrtf, mode));
        })) {
      return hrtf;
    }
  }
  return "";
}

std::string FormatDirectory(const InspectedDirectory& directory) {
  std::string text = directory.path.string() + "\n\nFiles\n" + FormatEntries(directory.entries);
  text += "\nWhat the engine runs\n  device    HRTF           mode   stages and their files\n" +
          FormatDecisions(directory.decisions);
  text += "\nMode auto\n" + FormatApps(directory.decisions);
  if (!directory.decisions.warnings.empty()) {
    text += "\nWhat the engine complains about\n";
    for (const std::string& warning : directory.decisions.warnings) {
      text += "  " + warning + "\n";
    }
  }
  return text;
}

Json DirectoryJson(const InspectedDirectory& directory) {
  Json json{{"directory", directory.path.string()},
            {"files", Json::array()},
            {"decisions", Json::array()},
            {"applications", Json::array()},
            {"unaskable_applications", directory.decisions.unaskable},
            {"warnings", directory.decisions.warnings}};
  for (const DirectoryEntry& entry : directory.entries) {
    Json file{{"name", entry.name}, {"state", Name(entry.state)}};
    if (!entry.file.kind.empty()) {
      file["kind"] = entry.file.kind;
    }
    if (!entry.file.problem.empty()) {
      file["problem"] = entry.file.problem;
    }
    if (!entry.file.json.is_null()) {
      file["contents"] = entry.file.json;
    }
    json["files"].push_back(std::move(file));
  }
  for (const Decision& decision : directory.decisions.decisions) {
    json["decisions"].push_back(DecisionJson(decision));
  }
  for (const AppDecision& app : directory.decisions.apps) {
    json["applications"].push_back(
        {{"package", &app == &directory.decisions.apps.front() ? Json() : Json(app.package)},
         {"other", app.other},
         {"wired", app.wired},
         {"bluetooth", app.bluetooth},
         {"wired_flag_1", app.flagged_wired},
         {"bluetooth_flag_1", app.flagged_bluetooth}});
  }
  return json;
}

}  // namespace kelda::tools
