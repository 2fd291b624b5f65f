// A value and the one mutex that guards it: the simulated backends' scripts
// and records are written from the code under test's threads and read from
// the test's. Every read is a copy taken under the lock; with() runs a
// change (or a read of several parts) inside it. Never call back into the
// same Locked from inside with().
#pragma once

#include <mutex>
#include <utility>

namespace ac::sim {

template <class T>
class Locked {
 public:
  Locked() = default;
  Locked(T value) : value_(std::move(value)) {}  // implicit, so that a field initializes from its value
  T get() const {
    std::lock_guard lock(mutex_);
    return value_;
  }
  void set(T value) { with([&](T& v) { v = std::move(value); }); }
  template <class F>
  auto with(F&& change) {
    std::lock_guard lock(mutex_);
    return change(value_);
  }
  template <class V>
  void push_back(V&& item) {
    with([&](T& v) { v.push_back(std::forward<V>(item)); });
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

}  // namespace ac::sim
