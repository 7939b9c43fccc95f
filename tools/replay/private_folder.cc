#include "tools/replay/private_folder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "tools/core/failure.h"

namespace kelda::tools {

PrivateFolder::PrivateFolder(const char* name) {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const std::filesystem::path parent = runtime != nullptr && access(runtime, W_OK | X_OK) == 0
                                           ? std::filesystem::path(runtime)
                                           : std::filesystem::temp_directory_path();
  std::string folder = parent / (std::string(name) + "XXXXXX");
  if (mkdtemp(folder.data()) == nullptr) {
    throw Failure(ExitCode::kOutput, parent.string() + ": " + std::strerror(errno));
  }
  path_ = folder;
}

PrivateFolder::~PrivateFolder() {
  std::error_code ignored;  // what is left there does no harm
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace kelda::tools
