// A bounded single-producer, single-consumer ring of preallocated slots, for
// handing work from a real-time thread to a queue: claiming, publishing and
// popping never allocate, lock or block.
//
// Contracts: one producer thread calls claim()/publish(), one consumer
// thread calls front()/pop() (each side may change thread only across a
// synchronisation, e.g. a stop). A claimed slot belongs to the producer until
// published (claiming again without publishing hands back the same slot); a
// published slot belongs to the consumer until popped. Slots are reused, not
// reset: their previous contents are still there when claimed.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>

namespace ac {

template <class T>
class SpscRing {
 public:
  // Slots are default-initialised, not zeroed: a large byte array in a slot
  // costs address space, and memory only for the pages a producer writes.
  explicit SpscRing(size_t capacity)
      : size_(capacity + 1), slots_(std::make_unique_for_overwrite<T[]>(capacity + 1)) {}
  SpscRing(const SpscRing&) = delete;
  SpscRing& operator=(const SpscRing&) = delete;

  // The next free slot, or nullptr when the consumer has fallen a whole ring behind.
  T* claim() {
    const size_t tail = tail_.load(std::memory_order_relaxed);
    if (next(tail) == head_.load(std::memory_order_acquire)) return nullptr;
    return &slots_[tail];
  }
  void publish() { tail_.store(next(tail_.load(std::memory_order_relaxed)), std::memory_order_release); }

  // The oldest published slot, or nullptr when there is none.
  T* front() {
    const size_t head = head_.load(std::memory_order_relaxed);
    if (head == tail_.load(std::memory_order_acquire)) return nullptr;
    return &slots_[head];
  }
  void pop() { head_.store(next(head_.load(std::memory_order_relaxed)), std::memory_order_release); }

 private:
  size_t next(size_t i) const { return i + 1 == size_ ? 0 : i + 1; }

  const size_t size_;
  std::unique_ptr<T[]> slots_;
  alignas(64) std::atomic<size_t> head_{0};  // consumer's
  alignas(64) std::atomic<size_t> tail_{0};  // producer's
};

}  // namespace ac
