// Edits a TOML text in place, as a person would.
#ifndef KELDA_TOOLS_COCKPIT_TOML_EDIT_H_
#define KELDA_TOOLS_COCKPIT_TOML_EDIT_H_

#include <span>
#include <string>
#include <string_view>

#include "tools/presets/toml_file.h"

namespace kelda::tools {

// Every comment, blank and line stays where it is, and so does the style of a number: its sign, and
// at least as many decimals. A key that is missing is added in its place among the `order` of keys:
// where it is commented out, by removing the '#'; else after the nearest key before it. A table
// that is missing is added at the end.
//
// After each edit the text is read again: it must hold exactly what it held, and the edit. Throws
// FileFailure if it does not, as in a table that is written inline, with the text unchanged.
class TomlEdit {
 public:
  // `name` is the file's, for messages. Throws FileFailure if `text` is no TOML.
  TomlEdit(std::string name, std::string text);

  // `table` is empty for the root; else as "hrtf.standard".
  void SetNumber(const std::string& table, const std::string& key, float value,
                 std::span<const std::string_view> order);
  void SetText(const std::string& table, const std::string& key, const std::string& value,
               std::span<const std::string_view> order);
  // Removes the line of a key, if there is one.
  void Remove(const std::string& table, const std::string& key);

  const std::string& text() const { return text_; }

 private:
  struct Lines;

  void Set(const std::string& table, const std::string& key, const std::string& literal,
           std::span<const std::string_view> order);
  std::string Added(const std::string& table, const std::string& key, const std::string& literal,
                    std::span<const std::string_view> order) const;
  const toml::node* Find(const std::string& table, const std::string& key) const;
  void Take(std::string text, const toml::table& expected, const std::string& what);
  [[noreturn]] void Refuse(const std::string& what) const;

  const std::string name_;
  std::string text_;
  toml::table root_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_COCKPIT_TOML_EDIT_H_
