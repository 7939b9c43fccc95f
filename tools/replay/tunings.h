#ifndef KELDA_TOOLS_REPLAY_TUNINGS_H_
#define KELDA_TOOLS_REPLAY_TUNINGS_H_

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <vector>

#include "tools/replay/private_folder.h"

namespace kelda::tools {

// The tuning directories of a run in which the tuning changes. The effect reads KELDA_DATA_DIR,
// which cannot change while there are threads: it names a link, which leads to one of them.
class Tunings {
 public:
  // The link leads to `first`, number 0. Before the effect is loaded, and before any thread. Throws
  // Failure: (usage) if it is not a directory, (output) if there can be no link.
  explicit Tunings(const std::filesystem::path& first);

  // Gives it the next number, which is that of Sound::tuning after the next
  // Setting::Kind::ReloadTuning. Throws Failure (usage) if it is not a directory. Any thread.
  void Add(const std::filesystem::path& directory);
  void RemoveLast();

  // The directory that was added last. Any thread.
  std::filesystem::path last() const;

  // Lets the link lead to it. Returns false if that fails. For SessionOptions::use_tuning.
  bool Use(uint32_t number) noexcept;

 private:
  const PrivateFolder folder_{"kelda-"};  // of the link
  mutable std::mutex mutex_;
  std::vector<std::filesystem::path> directories_;
  std::filesystem::path used_;
};

}  // namespace kelda::tools

#endif  // KELDA_TOOLS_REPLAY_TUNINGS_H_
