// What a fuzz target makes its decisions from.
#ifndef KELDA_FUZZ_BYTE_READER_H_
#define KELDA_FUZZ_BYTE_READER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace kelda::fuzz {

// Takes values from the front of a fuzzer's input; after its end there are zeros.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }

  std::span<const uint8_t> TakeBytes(std::size_t count) {
    const auto bytes = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(bytes.size());
    return bytes;
  }
  template <typename T>
  T Take() {
    T value{};
    const auto bytes = TakeBytes(sizeof(value));
    if (!bytes.empty()) {
      std::memcpy(&value, bytes.data(), bytes.size());
    }
    return value;
  }
  // 0..count - 1, from one byte; count is 1..256.
  uint32_t Below(std::size_t count) { return Take<uint8_t>() % static_cast<uint32_t>(count); }
  template <typename T, std::size_t kCount>
  T OneOf(const T (&choices)[kCount]) {
    return choices[Below(kCount)];
  }

 private:
  std::span<const uint8_t> rest_;
};

}  // namespace kelda::fuzz

#endif  // KELDA_FUZZ_BYTE_READER_H_
