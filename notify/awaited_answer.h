// Waiting for a platform completion handler with a time-out.
//
// The platform may call a completion late (after the waiter gave up), twice,
// or never; the shared box keeps a late call harmless and the first answer
// wins. The waiting thread blocks on a semaphore, never on the caller of the
// completion.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "support/dispatch.h"

namespace ac::notify {

template <class T>
std::optional<T> awaitAnswer(double timeoutSeconds, const std::function<void(std::function<void(T)>)>& ask) {
  struct Box {
    std::mutex mutex;
    std::optional<T> value;
    Semaphore answered;
  };
  auto box = std::make_shared<Box>();
  ask([box](T value) {
    {
      std::lock_guard lock(box->mutex);
      if (box->value) return;
      box->value = std::move(value);
    }
    box->answered.signal();
  });
  if (!box->answered.wait(timeoutSeconds)) return std::nullopt;
  std::lock_guard lock(box->mutex);
  return box->value;
}

}  // namespace ac::notify
