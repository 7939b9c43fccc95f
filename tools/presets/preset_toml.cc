#include "tools/presets/preset_toml.h"

#include <cmath>
#include <span>
#include <utility>

#include "tools/core/decimal.h"
#include "tools/core/file_problems.h"
#include "tools/presets/toml_file.h"
#include "upmix-lib/files/data_file.h"

namespace kelda::tools {
namespace {

using upmix_lib::ParameterField;

void Finish(std::span<std::byte> parameters, const ParameterSet& set) {
  if (set.kind != nullptr) {
    upmix_lib::Seal(parameters, *set.kind);
  }
}

std::string KnownKeys(const ParameterSet& set) {
  std::string keys;
  for (const ParameterMeaning& meaning : set.meanings) {
    if (!keys.empty()) {
      keys += ", ";
    }
    keys += meaning.key;
  }
  return keys;
}

// Writes the value of one key of the preset to `parameters`, or adds what is wrong with it to
// `*problems`.
void Take(std::string_view key, const toml::node& node, const ParameterSet& set,
          std::span<std::byte> parameters, FileProblems* problems) {
  for (std::size_t i = 0; i < set.meanings.size(); ++i) {
    if (key != set.meanings[i].key) {
      continue;
    }
    const ParameterField& field = set.fields[i];
    const std::string allowed = FormatRange(field, set.meanings[i]);
    const auto refuse = [&](const char* why) {
      std::string what(key);
      what.append(" is ").append(why).append(" (").append(Shown(node)).append(", ");
      problems->Add(LineOf(node), what + allowed + ")");
    };
    if (!node.is_number()) {
      return refuse("not a number");
    }
    // Compared as floats, as the file holds them: a preset can then have a limit like 0.1, which is
    // not exact in binary.
    const auto value = static_cast<float>(NumberOf(node));
    if (!(value >= field.min && value <= field.max)) {
      return refuse("out of range");
    }
    WriteParameter(parameters, field, value);
    return;
  }
  problems->Add(LineOf(node), UnknownKey(key, node, KnownKeys(set)));
}

}  // namespace

std::vector<std::byte> DefaultPreset(const ParameterSet& set) {
  std::vector<std::byte> parameters(set.size_bytes);
  upmix_lib::SetDefaults(parameters, set.fields);
  Finish(parameters, set);
  return parameters;
}

std::vector<std::byte> ReadPreset(const std::filesystem::path& preset, const ParameterSet& set) {
  return ReadPreset(preset, set, DefaultPreset(set));
}

std::vector<std::byte> ReadPreset(const std::filesystem::path& preset, const ParameterSet& set,
                                  std::vector<std::byte> others) {
  const toml::table table = ReadToml(preset);
  std::vector<std::byte> parameters = std::move(others);
  FileProblems problems(preset.string());
  for (const auto& [key, node] : table) {
    Take(key.str(), node, set, parameters, &problems);
  }
  problems.ThrowIfAny();
  Finish(parameters, set);
  return parameters;
}

std::string PresetTemplate(const ParameterSet& set) {
  std::string text = "# " + std::string(set.title) +
                     ": every parameter with its default.\n"
                     "# Remove the '#' of a parameter to change it.\n";
  for (std::size_t i = 0; i < set.meanings.size(); ++i) {
    const ParameterMeaning& meaning = set.meanings[i];
    text.append("\n# ").append(meaning.text).append("; ");
    text += FormatRange(set.fields[i], meaning);
    text.append("\n#").append(meaning.key).append(" = ");
    text += FormatFloat(set.fields[i].initial) + "\n";
  }
  return text;
}

}  // namespace kelda::tools
