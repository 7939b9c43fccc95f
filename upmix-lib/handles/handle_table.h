#ifndef KELDA_UPMIX_LIB_HANDLES_HANDLE_TABLE_H_
#define KELDA_UPMIX_LIB_HANDLES_HANDLE_TABLE_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace kelda::upmix_lib {

// Whose instance a handle stands for.
enum class HandleKind : uint32_t { kEqualizer = 1, kVirtualizer = 2, kCinema = 3 };

// The instances of one component, by 32-bit handle.
//
//   handle = generation (22 bits, never 0) | kind (2 bits) | slot (8 bits)
//
// A slot takes the next generation each time it is filled, so that the handle of a
// destroyed instance is refused rather than taken for its successor; the kind keeps the
// handle of one component from being taken for another's. One table is
// meant to live in static storage; instances still in it at exit are left alone,
// because another thread may be inside one.
template <typename Instance>
class HandleTable {
 public:
  static constexpr std::size_t kCapacity = 256;

  constexpr explicit HandleTable(HandleKind kind) : kind_(kind) {}

  // Takes over `instance` and returns its handle, or 0 if the table is full; the
  // instance is then destroyed. Control.
  uint32_t Insert(std::unique_ptr<Instance> instance) {
    const std::lock_guard lock(changing_);
    for (uint32_t index = 0; index < kCapacity; ++index) {
      Slot& slot = slots_[index];
      if (slot.handle.load(std::memory_order_relaxed) != 0) {
        continue;
      }
      slot.generation = slot.generation == kLastGeneration ? 1 : slot.generation + 1;
      const uint32_t handle = (slot.generation << (kKindBits + kSlotBits)) |
                              (static_cast<uint32_t>(kind_) << kSlotBits) | index;
      slot.instance.store(instance.release(), std::memory_order_relaxed);
      slot.handle.store(handle, std::memory_order_release);
      return handle;
    }
    return 0;
  }

  // The instance of `handle`, or null if the handle is zero, stale or another component's.
  // Never blocks and is safe beside insertion and removal of other instances. Any thread.
  Instance* Find(uint32_t handle) const {
    const Slot& slot = slots_[handle & kSlotMask];
    return handle != 0 && slot.handle.load(std::memory_order_acquire) == handle
               ? slot.instance.load(std::memory_order_relaxed)
               : nullptr;
  }

  // Takes the instance of `handle` out of the table; null if the handle is zero, stale
  // or another component's. Control.
  std::unique_ptr<Instance> Remove(uint32_t handle) {
    const std::lock_guard lock(changing_);
    Slot& slot = slots_[handle & kSlotMask];
    if (handle == 0 || slot.handle.load(std::memory_order_relaxed) != handle) {
      return nullptr;
    }
    slot.handle.store(0, std::memory_order_relaxed);
    return std::unique_ptr<Instance>(slot.instance.exchange(nullptr, std::memory_order_relaxed));
  }

 private:
  static constexpr uint32_t kSlotBits = 8;
  static constexpr uint32_t kKindBits = 2;
  static constexpr uint32_t kSlotMask = (1u << kSlotBits) - 1;
  static constexpr uint32_t kLastGeneration = (1u << (32 - kKindBits - kSlotBits)) - 1;
  static_assert(kCapacity == kSlotMask + 1);

  struct Slot {
    std::atomic<uint32_t> handle{0};  // 0: free
    std::atomic<Instance*> instance{nullptr};
    uint32_t generation = 0;  // guarded by changing_
  };

  const HandleKind kind_;
  std::array<Slot, kCapacity> slots_;
  std::mutex changing_;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_HANDLES_HANDLE_TABLE_H_
