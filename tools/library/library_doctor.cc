#include "tools/library/library_doctor.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string>

#include "tools/core/format.h"
#include "tools/core/guarded_call.h"
#include "tools/core/printable.h"
#include "tools/core/standard_output.h"
#include "tools/library/elf_library.h"
#include "tools/library/library_trial.h"

namespace kelda::tools {
namespace {

constexpr unsigned kLimitS = 60;  // per component; an emulator is slow

bool ReportSymbols(const ElfLibrary& library) {
  std::size_t present = 0;
  std::string missing;
  for (const char* const name : kUpmixLibEntryNames) {
    if (library.functions.contains(name)) {
      ++present;
    } else {
      missing.append(" ").append(name);
    }
  }
  PrintToStandardOutput(Format("symbols: %zu of %zu present%s%s\n", present,
                               std::size(kUpmixLibEntryNames),
                               missing.empty() ? "" : ", missing:", missing.c_str()));
  return missing.empty();
}

// Runs in the child.
bool TryComponent(const std::filesystem::path& library, const std::filesystem::path& tuning,
                  const Component& component) {
  void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    std::printf("  it cannot be loaded: %s\n", Printable(dlerror()).c_str());
    return false;
  }
  const UpmixLibEntries entries = UpmixLibEntries::Of(handle);
  ComponentTrial trial(entries, tuning);
  component.trial(&trial);
  return trial.fits();
}

}  // namespace

bool DiagnoseLibrary(const std::filesystem::path& directory, const std::filesystem::path& tuning) {
  const std::filesystem::path path = std::filesystem::absolute(directory) / "libupmix-lib.so";
  const ElfLibrary library = ReadElfLibrary(path);
  PrintToStandardOutput(Printable(path.string()) + ": " + library.processor + "\n");
  if (!ReportSymbols(library)) {
    return false;
  }
  if (!library.for_this_processor) {
    PrintToStandardOutput("it is for another processor than this program: nothing of it was run\n");
    return false;
  }
  bool fits = true;
  for (const Component& component : Components()) {
    PrintToStandardOutput(std::string(component.name) + "\n");
    const ChildEnd end = RunInChild([&] { return TryComponent(path, tuning, component); }, kLimitS);
    if (!end.returned) {
      PrintToStandardOutput("  does not fit: " + end.how + "; on a phone all sound would stop\n");
    }
    fits = fits && end.returned && end.result;
  }
  return fits;
}

}  // namespace kelda::tools
