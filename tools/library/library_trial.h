// Tries a signal library out: one component after another, as the effect uses it.
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

// One component's trial: prints every call with its status, and keeps what does not fit.
class ComponentTrial {
 public:
  ComponentTrial(const UpmixLibEntries& library, const std::filesystem::path& tuning)
      : entries(library), directory(tuning.string()), path_(tuning) {}

  const UpmixLibEntries& entries;
  const std::string directory;  // of the tuning files, as the library is told it

  bool fits() const { return fits_; }

  // Prints a call; a status other than 0 does not fit. Returns whether it was 0.
  bool Call(const char* entry, const std::string& what, int32_t status);
  // Prints a call that is to fail.
  void Refused(const char* entry, const std::string& what, bool refused);
  // Notes what does not fit, if `condition` does not hold.
  void Expect(bool condition, const std::string& problem);
  // A parameter file, whole; notes its absence, and a length other than `bytes`.
  std::vector<char> Parameters(const char* file, uint32_t bytes);
  // Work memory of a size that the library reported, with a margin; empty if the size
  // cannot be right.
  std::vector<char> WorkMemory(uint32_t bytes);
  // Notes that the margin of `work` was written to.
  void CheckWorkMemory(const std::vector<char>& work);
  // Judges a processed block of `frames` frames, and has `process` do more of them to
  // say how long one takes.
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
