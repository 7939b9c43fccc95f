#include "platform/data_directory.h"

#include <cstdlib>

namespace kelda {

std::string DataDirectory() {
  const char* directory = std::getenv("KELDA_DATA_DIR");
  return directory != nullptr && *directory != '\0' ? directory : "/data/vendor/kelda";
}

}  // namespace kelda
