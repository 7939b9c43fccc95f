#ifndef KELDA_SETTINGS_TUNED_APP_LIST_H_
#define KELDA_SETTINGS_TUNED_APP_LIST_H_

#include <map>
#include <string>

#include "settings/upmix_types.h"

namespace kelda {

// Which upmix mode each tuned application gets, read from a text file: one entry a line, the
// package name, a comma, and OFF, MUSIC or CINEMA. Control thread.
class TunedAppList {
 public:
  // An empty list, which Reload fills from the "tunedapp_list" of the data directory.
  TunedAppList();
  // An empty list, which Reload fills from the file `path`.
  explicit TunedAppList(std::string path);

  // Replaces the list by the file's entries; by none if it cannot be read. Lines
  // that are not entries are skipped, and so is every line of more than
  // kLongestTextBytes. The last of several lines for one package counts. The first 32
  // warnings are logged, then the number of the others. Throws std::bad_alloc, with the
  // list as it was.
  void Reload();
  bool IsExist(const std::string& package) const;
  // The package's mode; Off if it is not listed.
  UpmixMode GetValue(const std::string& package) const;
  // The mode that Auto runs for the package: the list's, else Cinema if `flag` is set, else Music.
  UpmixMode ModeOf(const std::string& package, bool flag) const;

  // Takes an entry from `line`; `line_number`, from 1, is for messages. Returns
  // whether the line is an entry.
  bool IsValidKeyValue(int line_number, const std::string& line, std::string* key,
                       UpmixMode* mode) const;
  // Cuts blanks, tabs, line ends and double quotes from both ends. A text of
  // nothing else is returned as it is.
  std::string Trim(const std::string& text) const;

 private:
  // As IsValidKeyValue, but stores the warning in *warning instead of logging it.
  bool TakeEntry(int line_number, const std::string& line, std::string* key, UpmixMode* mode,
                 std::string* warning) const;

  const std::string path_;
  std::map<std::string, UpmixMode> applications_;
  const std::map<std::string, UpmixMode> mode_names_;
};

}  // namespace kelda

#endif  // KELDA_SETTINGS_TUNED_APP_LIST_H_
