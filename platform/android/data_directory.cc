#include "platform/data_directory.h"

namespace kelda {

std::string DataDirectory() { return "/data/vendor/kelda"; }

}  // namespace kelda
