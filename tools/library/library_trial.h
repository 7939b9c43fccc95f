// Tries a signal library as the effect uses it, one component after another.
#ifndef KELDA_TOOLS_LIBRARY_LIBRARY_TRIAL_H_
#define KELDA_TOOLS_LIBRARY_LIBRARY_TRIAL_H_

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tools/library/guarded_floats.h"
#include "tools/library/upmix_lib_entries.h"

namespace kelda::tools {

// The trial of one component: prints every call with its status, and remembers whether everything
// fits.
class ComponentTrial {
 public:
  ComponentTrial(const UpmixLibEntries& library, const std::filesystem::path& tuning)
      : entries(library), directory(tuning.string()), path_(tuning) {}

  const UpmixLibEntries& entries;
  const std::string directory;  // of the tuning files, as passed to the library

  bool fits() const { return fits_; }

  // Prints a call. Its status fits only if it is 0. Returns whether it is 0.
  bool Call(const char* entry, const std::string& what, int32_t status);
  // Prints a call that has to fail.
  void Refused(const char* entry, const std::string& what, bool refused);
  // Prints `problem` as what does not fit, if `condition` is false.
  void Expect(bool condition, const std::string& problem);
  // Reads a whole parameter file. It does not fit if it is missing or if its length is not `bytes`.
  std::vector<char> Parameters(const char* file, uint32_t bytes);
  // Returns work memory of a size that the library reported, with a margin; empty if the size
  // cannot be right.
  std::vector<char> WorkMemory(uint32_t bytes);
  // It does not fit if the margin of `work` was written to.
  void CheckWorkMemory(const std::vector<char>& work);
  // Calls `process` for 100 blocks of `frames` frames each. Prints how long a block takes, and
  // checks the last block, which is in `out`.
  void Block(const char* entry, int frames, GuardedFloats* out,
             const std::function<int32_t()>& process);

 private:
  std::filesystem::path path_;
  bool fits_ = true;
};

struct Component {
  const char* name;
  void (*trial)(ComponentTrial* trial);
};

// All five, in the order of the interface's declaration.
const std::vector<Component>& Components();

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_LIBRARY_LIBRARY_TRIAL_H_
