// The instances of a process.
#ifndef KELDA_CHANGEOVER_POOL_H_
#define KELDA_CHANGEOVER_POOL_H_

#include <hardware/audio_effect.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

#include "changeover/instance.h"

namespace kelda::changeover {

// Each seat holds one instance that is heard, or kept warm; one more serves all seats as their
// standby in turn. Instances are made when they are first needed and never for a change after that;
// those of seats that were given up wait for the next, and no more than two wait then. One thread.
class Pool {
 public:
  // `library` outlives it.
  explicit Pool(const audio_effect_library_t& library) : library_(library) {}

  void AddSeats(std::size_t count) { seats_ += count; }
  void RemoveSeats(std::size_t count);
  // As many standbys more may be made, for those that stand in a crossfade whose audio has stopped.
  void AllowSpares(std::size_t count) { spares_ = std::max(spares_, count); }

  // Whether Take gives one, unless there is no memory: one waits, or may be made.
  bool HasFree() const { return !free_.empty() || instances_.size() < seats_ + spares_ + 1; }

  // One that waits or is made now; null if it cannot be made. Throws std::bad_alloc.
  Instance* Take();
  void Return(Instance* instance);

  // Parks one that waits, for up to `periods`. Returns whether there is more to park.
  bool Park(int periods);

 private:
  const audio_effect_library_t& library_;
  std::vector<std::unique_ptr<Instance>> instances_;
  std::vector<Instance*> free_;
  std::size_t seats_ = 0, spares_ = 0;
  unsigned made_ = 0;
};

}  // namespace kelda::changeover

#endif  // KELDA_CHANGEOVER_POOL_H_
