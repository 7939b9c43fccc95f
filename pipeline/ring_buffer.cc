#include "pipeline/ring_buffer.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace kelda {

RingBuffer::RingBuffer(int capacity_bytes, int ready_threshold_bytes)
    : ready_threshold_(ready_threshold_bytes),
      storage_(MakeCacheAligned<char>(static_cast<std::size_t>(capacity_bytes))),
      capacity_(capacity_bytes),
      read_(storage_.get()),
      write_(storage_.get()),
      begin_(storage_.get()),
      end_(storage_.get() + capacity_bytes) {}

void RingBuffer::Init() {
  ready_ = false;
  read_ = begin_;
  write_ = begin_;
}

void RingBuffer::Enqueue(const char* data, int bytes) {
  const int first = std::min(bytes, static_cast<int>(end_ - write_));
  const int second = bytes - first;
  if (data != write_) {
    std::memcpy(write_, data, static_cast<std::size_t>(first));
    std::memcpy(begin_, data + first, static_cast<std::size_t>(second));
  }
  write_ = bytes < end_ - write_ ? write_ + bytes : begin_ + second;
}

int RingBuffer::Dequeue(char* dest, int bytes) {
  const int count = std::min(ReadAvail(), bytes);
  const int first = std::min(count, static_cast<int>(end_ - read_));
  const int second = count - first;
  if (dest != nullptr) {
    std::memcpy(dest, read_, static_cast<std::size_t>(first));
    std::memcpy(dest + first, begin_, static_cast<std::size_t>(second));
  }
  read_ = count < end_ - read_ ? read_ + count : begin_ + second;
  // An empty buffer starts again at its beginning: one that is emptied often then uses little
  // memory, which stays in the cache.
  if (read_ == write_) {
    read_ = write_ = begin_;
  }
  return count;
}

int RingBuffer::ReadAvail() const {
  return static_cast<int>(read_ <= write_ ? write_ - read_ : (end_ - read_) + (write_ - begin_));
}

bool RingBuffer::IsReady() {
  if (!ready_ && ready_threshold_ <= ReadAvail()) {
    ready_ = true;
  }
  return ready_;
}

}  // namespace kelda
