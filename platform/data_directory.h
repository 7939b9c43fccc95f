// Where the tuning files live and captures are written.
#ifndef KELDA_PLATFORM_DATA_DIRECTORY_H_
#define KELDA_PLATFORM_DATA_DIRECTORY_H_

#include <string>

namespace kelda {

// The directory, without a trailing '/'. Control thread. Each platform has its own
// version: a constant on the phone, the environment's KELDA_DATA_DIR on the workstation.
std::string DataDirectory();

// The path of a file in it.
inline std::string DataPath(const std::string& name) { return DataDirectory() + "/" + name; }

}  // namespace kelda

#endif  // KELDA_PLATFORM_DATA_DIRECTORY_H_
