#include "tools/presets/toml_reader.h"

#include <cmath>

#include "tools/core/decimal.h"

namespace kelda::tools {

const toml::node* TomlReader::Take(const char* key) {
  taken_.insert(key);
  return table_.get(key);
}

std::string TomlReader::Name(std::string_view key) const {
  return (path_.empty() ? "" : path_ + ".") + std::string(key);
}

std::optional<std::string> TomlReader::Text(const char* key) {
  const toml::node* const node = Take(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* text = node->as_string()) {
    return text->get();
  }
  Refuse(key, "is not a text (" + Shown(*node) + ")");
  return std::nullopt;
}

std::string TomlReader::RequiredText(const char* key) {
  const toml::node* const node = table_.get(key);
  const auto text = Text(key);
  if (node == nullptr) {
    problems_->Add(LineOf(table_), Name(key) + " is missing");
  } else if (text == "") {
    Refuse(key, "is empty");
  }
  return text.value_or("");
}

std::optional<bool> TomlReader::Flag(const char* key) {
  const toml::node* const node = Take(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* flag = node->as_boolean()) {
    return flag->get();
  }
  Refuse(key, "is neither true nor false (" + Shown(*node) + ")");
  return std::nullopt;
}

std::optional<double> TomlReader::Number(const char* key, double min, double max) {
  const toml::node* const node = Take(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  const std::string allowed =
      FormatFloat(static_cast<float>(min)) + " to " + FormatFloat(static_cast<float>(max));
  if (!node->is_number()) {
    Refuse(key, "is not a number (" + Shown(*node) + ", " + allowed + ")");
    return std::nullopt;
  }
  const double value = NumberOf(*node);
  if (value >= min && value <= max) {
    return value;
  }
  Refuse(key, "is out of range (" + Shown(*node) + ", " + allowed + ")");
  return std::nullopt;
}

std::optional<int> TomlReader::WholeNumber(const char* key, int min, int max) {
  const std::optional<double> number = Number(key, min, max);
  if (!number) {
    return std::nullopt;
  }
  if (*number == std::floor(*number)) {
    return static_cast<int>(*number);
  }
  Refuse(key, "is not a whole number (" + FormatDouble(*number) + ")");
  return std::nullopt;
}

std::optional<TomlReader> TomlReader::Table(const char* key) {
  const toml::node* const node = Take(key);
  if (node == nullptr) {
    return std::nullopt;
  }
  if (const auto* table = node->as_table()) {
    return TomlReader(*table, Name(key), problems_);
  }
  Refuse(key, "is not a table (" + Shown(*node) + ")");
  return std::nullopt;
}

void TomlReader::RefuseOtherKeys() const {
  std::string known;
  for (const std::string& key : taken_) {
    known += (known.empty() ? "" : ", ") + key;
  }
  for (const auto& [key, node] : table_) {
    if (taken_.contains(key.str())) {
      continue;
    }
    problems_->Add(LineOf(node), UnknownKey(Name(key.str()), node, known));
  }
}

void TomlReader::Refuse(const char* key, const std::string& what) const {
  const toml::node* const node = table_.get(key);
  problems_->Add(LineOf(node != nullptr ? *node : table_), Name(key) + " " + what);
}

}  // namespace kelda::tools
