#ifndef KELDA_SETTINGS_CONFIG_PATH_H_
#define KELDA_SETTINGS_CONFIG_PATH_H_

#include <algorithm>
#include <climits>
#include <cstddef>
#include <optional>
#include <string>

namespace kelda {

// An empty path with room for any that can be opened, so that assigning one allocates nothing:
// a command that gives several stages their paths cannot run out of memory half-way.
inline std::string RoomForPath() {
  std::string path;
  path.reserve(PATH_MAX);
  return path;
}

// A configuration file's path as the signal library takes it.
struct ConfigPath {
  char directory[PATH_MAX];  // without its trailing '/'
  const char* file;          // within the path that was split
};

// Splits `path` at its last '/'; nothing if it has none. A directory that is too long to be
// opened is cut; with the file's name it is still too long to be opened. Allocates nothing.
//
//   SplitConfigPath("/data/vendor/kelda/wired.hki.config")
//       -> directory "/data/vendor/kelda", file "wired.hki.config"
inline std::optional<ConfigPath> SplitConfigPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return std::nullopt;
  }
  ConfigPath config;
  const std::size_t length = std::min(slash, sizeof(config.directory) - 1);
  config.directory[path.copy(config.directory, length)] = '\0';
  config.file = path.c_str() + slash + 1;
  return config;
}

}  // namespace kelda

#endif  // KELDA_SETTINGS_CONFIG_PATH_H_
