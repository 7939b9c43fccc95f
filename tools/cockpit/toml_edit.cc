#include "tools/cockpit/toml_edit.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "tools/core/decimal.h"
#include "tools/core/file_problems.h"
#include "tools/core/text_file.h"

namespace kelda::tools {
namespace {

constexpr std::string_view kBlanks = " \t";

toml::table Parsed(const std::string& name, const std::string& text) {
  try {
    return toml::parse(text, name);
  } catch (const toml::parse_error& error) {
    FileProblems problems(name);
    problems.Add(error.source().begin.line, std::string(error.description()));
    throw FileFailure(problems.Text());
  }
}

// The parts of "hrtf.standard"; none of "".
std::vector<std::string> Parts(const std::string& table) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at < table.size();) {
    const std::size_t end = std::min(table.find('.', at), table.size());
    parts.push_back(table.substr(at, end - at));
    at = end + 1;
  }
  return parts;
}

// Where a position of the parser, which counts characters, is in the text.
std::size_t OffsetOf(const std::string& text, toml::source_position position) {
  std::size_t at = 0;
  for (toml::source_index line = 1; line < position.line; ++line) {
    at = text.find('\n', at) + 1;
  }
  const auto continues = [&](std::size_t i) {
    return i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0u) == 0x80u;
  };
  for (toml::source_index column = 1; column < position.column; ++column) {
    for (++at; continues(at); ++at) {
    }
  }
  return at;
}

std::string_view WithoutBlanks(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string_view::npos ? std::string_view() : text.substr(begin);
}

// The bare key that a line begins with; empty if it begins with something else.
std::string_view KeyOf(std::string_view line) {
  line = WithoutBlanks(line);
  std::size_t end = 0;
  while (end < line.size() && (std::isalnum(static_cast<unsigned char>(line[end])) != 0 ||
                               line[end] == '_' || line[end] == '-')) {
    ++end;
  }
  return WithoutBlanks(line.substr(end)).starts_with('=') ? line.substr(0, end)
                                                          : std::string_view();
}

bool IsHeader(std::string_view line) { return WithoutBlanks(line).starts_with('['); }

bool IsHeaderOf(std::string_view line, const std::string& table) {
  std::string found;
  for (const char c : line) {
    if (c == '#' || c == '\r' || c == '\n') {
      break;
    }
    if (kBlanks.find(c) == std::string_view::npos) {
      found += c;
    }
  }
  return found == "[" + table + "]";
}

bool IsPlainDecimal(std::string_view number) {
  return !number.empty() && number.find_first_not_of("+-0123456789.") == std::string_view::npos;
}

std::size_t Decimals(std::string_view number) {
  const std::size_t point = number.find('.');
  return point == std::string_view::npos ? 0 : number.size() - point - 1;
}

// `value` in the style of `before`.
std::string NumberLike(std::string_view before, float value) {
  std::string number = FormatFloat(value);
  if (!IsPlainDecimal(before) || !IsPlainDecimal(number)) {
    return number;
  }
  if (Decimals(before) > Decimals(number)) {
    number += Decimals(number) == 0 ? "." : "";
    number.append(Decimals(before) - Decimals(number), '0');
  }
  return before.starts_with('+') && number.front() != '-' ? "+" + number : number;
}

}  // namespace

// A text as its lines, each with its end.
struct TomlEdit::Lines {
  explicit Lines(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
      lines.push_back(text.substr(at, end - at));
      at = end;
    }
    line_end = text.find("\r\n") != std::string::npos ? "\r\n" : "\n";
  }

  void EndLast() {
    if (!lines.empty() && !lines.back().ends_with('\n')) {
      lines.back() += line_end;
    }
  }
  std::string Joined() const {
    std::string text;
    for (const std::string& line : lines) {
      text += line;
    }
    return text;
  }

  std::vector<std::string> lines;
  std::string line_end;
};

TomlEdit::TomlEdit(std::string name, std::string text)
    : name_(std::move(name)), text_(std::move(text)), root_(Parsed(name_, text_)) {}

void TomlEdit::Refuse(const std::string& what) const {
  FileProblems problems(name_);
  problems.Add(0, what);
  throw FileFailure(problems.Text());
}

const toml::node* TomlEdit::Find(const std::string& table, const std::string& key) const {
  const toml::table* in = &root_;
  for (const std::string& part : Parts(table)) {
    const toml::node* const node = in->get(part);
    if (node == nullptr || !node->is_table()) {
      return nullptr;
    }
    in = node->as_table();
  }
  return in->get(key);
}

void TomlEdit::SetNumber(const std::string& table, const std::string& key, float value,
                         std::span<const std::string_view> order) {
  std::string before;
  if (const toml::node* const node = Find(table, key)) {
    const std::size_t begin = OffsetOf(text_, node->source().begin);
    before = text_.substr(begin, OffsetOf(text_, node->source().end) - begin);
  }
  Set(table, key, NumberLike(before, value), order);
}

void TomlEdit::SetText(const std::string& table, const std::string& key, const std::string& value,
                       std::span<const std::string_view> order) {
  std::string literal = "\"";
  for (const char c : value) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      Refuse("no name for a file: " + Quoted(value));
    }
    literal += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  }
  literal += '"';
  const toml::node* const node = Find(table, key);
  if (node != nullptr && text_[OffsetOf(text_, node->source().begin)] == '\'' &&
      value.find('\'') == std::string::npos) {
    literal = "'" + value + "'";
  }
  Set(table, key, literal, order);
}

void TomlEdit::Set(const std::string& table, const std::string& key, const std::string& literal,
                   std::span<const std::string_view> order) {
  const std::vector<std::string> parts = Parts(table);
  toml::table expected = root_;
  toml::table* in = &expected;
  for (const std::string& part : parts) {
    toml::node& node = in->insert(part, toml::table{}).first->second;
    if (!node.is_table()) {
      Refuse(Quoted(table) + " is no table");
    }
    in = node.as_table();
  }
  const toml::table value = Parsed(name_, "value = " + literal);
  in->insert_or_assign(key, *value.get("value"));

  std::string text = text_;
  if (const toml::node* const node = Find(table, key)) {
    const std::size_t begin = OffsetOf(text, node->source().begin);
    text.replace(begin, OffsetOf(text, node->source().end) - begin, literal);
  } else {
    text = Added(table, key, literal, order);
  }
  Take(std::move(text), expected, (table.empty() ? "" : table + ".") + key + " = " + literal);
}

std::string TomlEdit::Added(const std::string& table, const std::string& key,
                            const std::string& literal,
                            std::span<const std::string_view> order) const {
  Lines text(text_);
  std::vector<std::string>& lines = text.lines;
  // The lines of the table, without its header.
  std::size_t begin = 0;
  if (!table.empty()) {
    while (begin < lines.size() && !IsHeaderOf(lines[begin], table)) {
      ++begin;
    }
    if (begin == lines.size()) {
      text.EndLast();
      if (!lines.empty()) {
        lines.push_back(text.line_end);
      }
      lines.push_back("[" + table + "]" + text.line_end);
      begin = lines.size() - 1;
    }
    ++begin;
  }
  std::size_t end = begin;
  while (end < lines.size() && !IsHeader(lines[end])) {
    ++end;
  }
  // Where it is commented out.
  for (std::size_t i = begin; i < end; ++i) {
    std::string& line = lines[i];
    const std::size_t mark = line.find_first_not_of(kBlanks);
    if (mark == std::string::npos || line[mark] != '#') {
      continue;
    }
    const std::string rest(WithoutBlanks(std::string_view(line).substr(mark + 1)));
    if (KeyOf(rest) != key) {
      continue;
    }
    try {
      const toml::table old = toml::parse(rest);
      const toml::source_region place = old.get(key)->source();
      const std::size_t at = OffsetOf(rest, place.begin);
      line.resize(mark);
      line.append(rest, 0, at).append(literal).append(rest, OffsetOf(rest, place.end));
      return text.Joined();
    } catch (const toml::parse_error&) {
      // A sentence that looks like a key.
    }
  }
  // After the nearest key before it, else before the nearest one after it and the comment above
  // that.
  const auto rank = [&](std::string_view name) {
    return std::find(order.begin(), order.end(), name) - order.begin();
  };
  std::optional<std::size_t> after, before;
  std::ptrdiff_t nearest = -1, next = std::ssize(order) + 1;
  for (std::size_t i = begin; i < end; ++i) {
    const std::string_view found = KeyOf(lines[i]);
    if (found.empty()) {
      continue;
    }
    if (rank(found) < rank(key) && rank(found) > nearest) {
      nearest = rank(found);
      const toml::node* const node = Find(table, std::string(found));
      after = node == nullptr ? i : node->source().end.line - 1;
    } else if (rank(found) > rank(key) && rank(found) < next) {
      next = rank(found);
      before = i;
    }
  }
  std::string indent, equals = " = ";
  if (const auto neighbour = after ? after : before) {
    const std::string& line = lines[*neighbour];
    indent = line.substr(0, line.find_first_not_of(kBlanks));
    // Equals signs below each other stay so.
    const std::size_t key_end = indent.size() + KeyOf(line).size(), sign = line.find('=');
    if (sign == key_end) {
      equals = "=";
    } else if (sign > key_end + 1 && sign > indent.size() + key.size()) {
      equals = std::string(sign - indent.size() - key.size(), ' ') + "= ";
    }
  }
  std::size_t at = end;
  if (after) {
    at = *after + 1;
  } else if (before) {
    at = *before;
    while (at > begin && WithoutBlanks(lines[at - 1]).starts_with('#')) {
      --at;
    }
  } else {
    while (at > begin &&
           WithoutBlanks(lines[at - 1]).find_first_not_of("\r\n") == std::string::npos) {
      --at;
    }
  }
  if (at == lines.size()) {
    text.EndLast();
  }
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at),
               indent + key + equals + literal + text.line_end);
  return text.Joined();
}

void TomlEdit::Remove(const std::string& table, const std::string& key) {
  const toml::node* const node = Find(table, key);
  if (node == nullptr) {
    return;
  }
  toml::table expected = root_;
  toml::table* in = &expected;
  for (const std::string& part : Parts(table)) {
    in = in->get_as<toml::table>(part);
  }
  in->erase(key);
  Lines text(text_);
  const toml::source_region place = node->source();
  text.lines.erase(text.lines.begin() + (place.begin.line - 1),
                   text.lines.begin() + place.end.line);
  Take(text.Joined(), expected, "without " + table + "." + key);
}

void TomlEdit::Take(std::string text, const toml::table& expected, const std::string& what) {
  std::optional<toml::table> parsed;
  try {
    parsed = toml::parse(text, name_);
  } catch (const toml::parse_error&) {
  }
  if (!parsed || *parsed != expected) {
    Refuse("its form is not known well enough to change it (" + what +
           "); please give each table a header in [brackets] and each key a line, and save again");
  }
  text_ = std::move(text);
  root_ = std::move(*parsed);
}

}  // namespace kelda::tools
