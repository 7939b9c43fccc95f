#ifndef KELDA_PROCESSORS_CONFIG_PATH_H_
#define KELDA_PROCESSORS_CONFIG_PATH_H_

#include <cstddef>
#include <optional>
#include <string>

namespace kelda {

// A configuration file's path as the signal library takes it.
struct ConfigPath {
  std::string directory;  // without its trailing '/'
  std::string file;
};

// Splits `path` at its last '/'; nothing if it has none.
inline std::optional<ConfigPath> SplitConfigPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::nullopt;
  return ConfigPath{path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace kelda

#endif  // KELDA_PROCESSORS_CONFIG_PATH_H_
