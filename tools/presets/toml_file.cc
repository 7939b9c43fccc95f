#include "tools/presets/toml_file.h"

#include <sstream>

#include "tools/core/decimal.h"
#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"

namespace kelda::tools {

toml::table ReadToml(const std::filesystem::path& path) {
  constexpr std::size_t kMaxBytes = std::size_t{1} << 20;
  const std::string text = ReadTextFile(path, kMaxBytes);
  try {
    return toml::parse(text, path.string());
  } catch (const toml::parse_error& error) {
    FileProblems problems(path.string());
    problems.Add(error.source().begin.line, std::string(error.description()));
    throw FileFailure(problems.Text());
  }
}

std::size_t LineOf(const toml::node& node) { return node.source().begin.line; }

double NumberOf(const toml::node& node) {
  // Not value<double>, which returns nothing for an integer that a double cannot hold exactly.
  const auto* const integer = node.as_integer();
  return integer != nullptr ? static_cast<double>(integer->get()) : node.as_floating_point()->get();
}

std::string Shown(const toml::node& node) {
  if (node.is_table()) {
    return "a table";
  }
  if (node.is_array()) {
    return "an array";
  }
  if (const auto* text = node.as_string()) {
    return Quoted(text->get());
  }
  if (const auto* number = node.as_floating_point()) {
    return FormatDouble(number->get());
  }
  std::ostringstream stream;
  stream << std::boolalpha;
  node.visit([&](const auto& value) {
    if constexpr (toml::is_value<decltype(value)>) {
      stream << value.get();
    }
  });
  return stream.str();
}

std::string UnknownKey(std::string_view key, const toml::node& node, const std::string& known) {
  return "unknown key " + Quoted(key) + " (" + Shown(node) + ", known: " + known + ")";
}

}  // namespace kelda::tools
