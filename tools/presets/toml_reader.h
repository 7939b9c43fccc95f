#ifndef KELDA_TOOLS_PRESETS_TOML_READER_H_
#define KELDA_TOOLS_PRESETS_TOML_READER_H_

#include <optional>
#include <set>
#include <string>

#include "tools/core/file_problems.h"
#include "tools/presets/toml_file.h"

namespace kelda::tools {

// Takes the keys of a table one by one. A value of the wrong type or out of range is added to the
// problems and then treated as missing. RefuseOtherKeys adds the keys that were not taken.
class TomlReader {
 public:
  // `path` names the table in messages: "hrtf.standard", or empty for the whole file.
  TomlReader(const toml::table& table, std::string path, FileProblems* problems)
      : table_(table), path_(std::move(path)), problems_(problems) {}

  std::optional<std::string> Text(const char* key);
  // Adds a problem and returns an empty text if the key is missing or its text empty.
  std::string RequiredText(const char* key);
  std::optional<bool> Flag(const char* key);
  std::optional<double> Number(const char* key, double min, double max);
  std::optional<int> WholeNumber(const char* key, int min, int max);
  std::optional<TomlReader> Table(const char* key);

  void RefuseOtherKeys() const;
  void Refuse(const char* key, const std::string& what) const;

 private:
  const toml::node* Take(const char* key);
  std::string Name(std::string_view key) const;

  const toml::table& table_;
  std::string path_;
  FileProblems* problems_;
  std::set<std::string, std::less<>> taken_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_PRESETS_TOML_READER_H_
