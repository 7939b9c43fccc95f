#ifndef KELDA_TOOLS_LIBRARY_ELF_LIBRARY_H_
#define KELDA_TOOLS_LIBRARY_ELF_LIBRARY_H_

#include <filesystem>
#include <set>
#include <string>

namespace kelda::tools {

// What the file of a shared library says about it. The library is not loaded and may be for another
// processor.
struct ElfLibrary {
  std::string processor;            // "ARM, 32 bit"
  bool for_this_processor;          // this program's
  std::set<std::string> functions;  // that it exports
};

// Throws Failure (input) if the file cannot be read or is not a shared library.
ElfLibrary ReadElfLibrary(const std::filesystem::path& path);

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIBRARY_ELF_LIBRARY_H_
