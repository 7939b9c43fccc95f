#ifndef KELDA_UPMIX_LIB_BASE_BYTES_H_
#define KELDA_UPMIX_LIB_BASE_BYTES_H_

#include <cstddef>
#include <span>
#include <type_traits>

namespace kelda::upmix_lib {

// The bytes of a value that files hold as it lies in memory. std::as_bytes and
// std::as_writable_bytes do the same, but the phone's standard library lacks them.
template <typename Value>
std::span<const std::byte> BytesOf(const Value& value) {
  static_assert(std::is_trivially_copyable_v<Value>);
  return {reinterpret_cast<const std::byte*>(&value), sizeof(value)};
}

template <typename Value>
std::span<std::byte> WritableBytesOf(Value& value) {
  static_assert(std::is_trivially_copyable_v<Value>);
  return {reinterpret_cast<std::byte*>(&value), sizeof(value)};
}

}  // namespace kelda::upmix_lib

#endif  // KELDA_UPMIX_LIB_BASE_BYTES_H_
