#include "platform/data_directory.h"

#include <cstdlib>

namespace kelda {

std::string DataDirectory() {
  const char* const given = std::getenv("KELDA_DATA_DIR");
  std::string directory = given != nullptr && *given != '\0' ? given : "/data/vendor/kelda";
  while (!directory.empty() && directory.back() == '/') {
    directory.pop_back();
  }
  return directory;
}

}  // namespace kelda
