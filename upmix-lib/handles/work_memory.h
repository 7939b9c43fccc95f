#ifndef KELDA_UPMIX_LIB_HANDLES_WORK_MEMORY_H_
#define KELDA_UPMIX_LIB_HANDLES_WORK_MEMORY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace kelda::upmix_lib {

// Puts an instance into memory that its caller owns: a mark at the first suitably aligned
// address, then the instance. Memory without the mark never held an instance.
//
// The caller ends an instance by releasing the memory, without a call. So an instance needs
// no destructor and owns nothing outside the memory.
template <typename Instance, uint32_t kMark>
class WorkMemory {
 public:
  // Makes an instance from `arguments` in `work`, which is not null, has kBytes bytes and any
  // alignment. Replaces what was there. Control.
  template <typename... Arguments>
  static void Create(void* work, Arguments&&... arguments) {
    ::new (Aligned(work)) Cell(std::forward<Arguments>(arguments)...);
  }

  // The instance in `work`, which is not null; null if Create made none there. Any thread.
  static Instance* Find(void* work) {
    auto* cell = std::launder(static_cast<Cell*>(Aligned(work)));
    return cell->mark == kMark ? &cell->instance : nullptr;
  }

 private:
  struct Cell {
    template <typename... Arguments>
    explicit Cell(Arguments&&... arguments) : instance(std::forward<Arguments>(arguments)...) {}

    uint32_t mark = kMark;
    Instance instance;
  };
  static_assert(std::is_trivially_destructible_v<Instance>, "nobody calls its destructor");

  static void* Aligned(void* work) {
    std::size_t space = kBytes;
    return std::align(alignof(Cell), sizeof(Cell), work, space);
  }

 public:
  static constexpr uint32_t kBytes = sizeof(Cell) + alignof(Cell) - 1;
};

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_HANDLES_WORK_MEMORY_H_
