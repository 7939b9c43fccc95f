#include "changeover/pool.h"

#include <algorithm>
#include <utility>

namespace kelda::changeover {

void Pool::RemoveSeats(std::size_t count) {
  seats_ -= count;
  while (free_.size() > 2) {
    Instance* const instance = free_.back();
    free_.pop_back();
    instances_.erase(std::find_if(instances_.begin(), instances_.end(),
                                  [&](const auto& owned) { return owned.get() == instance; }));
  }
}

Instance* Pool::Take() {
  if (free_.empty()) {
    free_.reserve(instances_.size() + 1);  // so that Return cannot fail
    instances_.reserve(instances_.size() + 1);
    auto made = Instance::Make(library_, made_);
    if (made == nullptr) {
      return nullptr;
    }
    ++made_;
    instances_.push_back(std::move(made));
    return instances_.back().get();
  }
  Instance* const instance = free_.back();
  free_.pop_back();
  return instance;
}

void Pool::Return(Instance* instance) { free_.push_back(instance); }

bool Pool::Park(int periods) {
  for (Instance* const instance : free_) {
    if (instance->parked() < Instance::kParkPeriods) {
      instance->Park(periods);
      return true;
    }
  }
  return false;
}

}  // namespace kelda::changeover
