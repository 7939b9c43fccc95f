#ifndef KELDA_UPMIX_LIB_FILES_CONFIG_FILE_H_
#define KELDA_UPMIX_LIB_FILES_CONFIG_FILE_H_

#include <cstddef>
#include <string>

#include "upmix-lib/base/status.h"

namespace kelda::upmix_lib {

inline constexpr std::size_t kMaxConfigBytes = 4096;  // a name is looked for in no more
inline constexpr std::size_t kMaxNameBytes = 255;     // of a data file's name

// Reads the configuration file `directory`/`file`, whose first whitespace-delimited
// token names a data file in the same directory, and writes that file's path to
// `data_path` (on success only). The name cannot leave the directory: one that holds
// "/" or ".." is refused. Control. Throws std::bad_alloc.
Status ReadConfigFile(const char* directory, const char* file, std::string& data_path);

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_FILES_CONFIG_FILE_H_
