// Polling for a condition that another thread or process makes true.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace ac::test {

// Polls `done` every 2 ms until it holds or `seconds` passed; whether it held.
inline bool eventually(const std::function<bool()>& done, double seconds = 5) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return done();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace ac::test
