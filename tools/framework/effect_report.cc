#include "tools/framework/effect_report.h"

#include <algorithm>
#include <cstddef>

#include "settings/tuning_directory.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

// Adds the file of "ROLE=FILE" or "ROLE=FILE:NAMES". The effect's own file names hold no ':'.
void AddFile(std::string_view text, std::vector<StageFile>* files) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    return;
  }
  const std::string_view value = text.substr(equals + 1);
  const std::size_t colon = std::min(value.find(':'), value.size());
  std::string_view names = value.substr(std::min(colon + 1, value.size()));
  names = names.substr(0, names.find_last_not_of(" \t\r") + 1);
  if (colon != 0) {
    files->push_back({std::string(text.substr(0, equals)), std::string(value.substr(0, colon)),
                      std::string(names)});
  }
}

}  // namespace

std::vector<Stage> ParseStages(std::string_view dump) {
  constexpr std::string_view kIndent = "      [";
  constexpr std::string_view kBin = ", bin=";
  std::vector<Stage> stages;
  while (!dump.empty()) {
    std::string_view line = TakeLine(&dump);
    if (!line.starts_with(kIndent) || line.size() < kIndent.size() + 3) {
      continue;
    }
    const bool runs = line[kIndent.size()] == '*';
    line.remove_prefix(kIndent.size() + 3);
    const std::size_t colon = line.find(": ");
    if (colon == std::string_view::npos) {
      continue;
    }
    std::string_view name = line.substr(0, colon);
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    Stage stage{std::string(name), runs, {}};
    line.remove_prefix(colon + 2);
    // NAMES is the whole first line of a configuration file, so it may hold any text, even that of
    // kBin.
    const std::size_t bin = line.rfind(kBin);
    AddFile(line.substr(0, bin), &stage.files);
    if (bin != std::string_view::npos) {
      AddFile(line.substr(bin + 2), &stage.files);
    }
    stages.push_back(std::move(stage));
  }
  return stages;
}

std::string RunningMode(const std::vector<Stage>& stages) {
  for (const Stage& stage : stages) {
    if (stage.runs && stage.name == FactsOf(kelda::Stage::Music).name) {
      return "music";
    }
    if (stage.runs && stage.name == FactsOf(kelda::Stage::Cinema).name) {
      return "cinema";
    }
  }
  return "off";
}

std::string StageTitle(const std::string& name) {
  for (const StageFacts& facts : kStages) {
    if (name == facts.name) {
      return facts.title;
    }
  }
  return name;
}

bool IsStageLog(std::string_view stage_name, std::string_view tag) {
  return std::any_of(kStages.begin(), kStages.end(), [&](const StageFacts& facts) {
    return facts.log_tag != nullptr && stage_name == facts.name && tag == facts.log_tag;
  });
}

}  // namespace kelda::tools
