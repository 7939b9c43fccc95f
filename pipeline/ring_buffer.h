#ifndef KELDA_PIPELINE_RING_BUFFER_H_
#define KELDA_PIPELINE_RING_BUFFER_H_

#include "pipeline/cache_aligned.h"
#include "platform/nonblocking.h"

namespace kelda {

// A FIFO of bytes, with a latch that says when enough is stored to begin with the output.
//
//        begin                                            end
//          |......[read ======== stored ======== write].....|
//
// Equal positions mean empty, so it never holds its whole capacity. Enqueue does not check
// for room: the owner chooses a capacity that is never reached.
// One thread at a time. Allocates at construction only.
//
//   RingBuffer ring(4096, 1024);
//   ring.Enqueue(data, 1024);  // now IsReady()
//   ring.Dequeue(dest, 512);
class RingBuffer {
 public:
  // Sizes in bytes. IsReady first reports true at `ready_threshold_bytes`.
  RingBuffer(int capacity_bytes, int ready_threshold_bytes);
  RingBuffer(const RingBuffer&) = delete;
  RingBuffer& operator=(const RingBuffer&) = delete;
  virtual ~RingBuffer() = default;

  // Empties the buffer and releases the ready latch. The bytes are not cleared.
  virtual void Init();
  // Appends `bytes` bytes, at most the capacity. More than FreeSize() overwrites bytes that
  // were not read yet, undetected. If `data` is write_position(), the bytes are in place
  // already and are not copied.
  virtual void Enqueue(const char* data, int bytes) KELDA_NONBLOCKING;

  // Removes up to `bytes` bytes into `dest`, or drops them if `dest` is null;
  // returns how many.
  int Dequeue(char* dest, int bytes) KELDA_NONBLOCKING;

  // The places of the oldest byte and of the next one. If all blocks have one size, and the
  // capacity is a multiple of it, each block is contiguous here and need not be copied.
  const char* read_position() const { return read_; }
  char* write_position() const { return write_; }

  // Stored bytes.
  int Size() const { return ReadAvail(); }
  int ReadAvail() const KELDA_NONBLOCKING;
  bool HaveData(int bytes) const { return ReadAvail() >= bytes; }
  int FreeSize() const { return capacity_ - ReadAvail(); }
  // True once the stored amount has reached the threshold; stays true while it
  // falls again, until Init.
  bool IsReady() KELDA_NONBLOCKING;

 protected:
  char* begin() const { return begin_; }
  char* end() const { return end_; }

 private:
  bool ready_ = false;
  const int ready_threshold_;
  const CacheAlignedArray<char> storage_;
  const int capacity_;
  char* read_;
  char* write_;
  char* const begin_;
  char* const end_;
};

}  // namespace kelda

#endif  // KELDA_PIPELINE_RING_BUFFER_H_
