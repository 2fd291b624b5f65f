// Reads and writes of fields that one mutex guards: the simulated backends'
// accessors are called from the code under test's threads and the test's.
#pragma once

#include <mutex>
#include <utility>

namespace ac::sim {

template <class T>
T readLocked(std::mutex& mutex, const T& field) {
  std::lock_guard<std::mutex> lock(mutex);
  return field;
}

template <class T, class V>
void writeLocked(std::mutex& mutex, T& field, V&& value) {
  std::lock_guard<std::mutex> lock(mutex);
  field = std::forward<V>(value);
}

}  // namespace ac::sim
