#include "platform/macos/owned_queue.h"

namespace ac::platform::macos {
namespace {

// Each queue is marked with its own address under this key.
char ownedQueueKey;

}  // namespace

dispatch_queue_t makeOwnedSerialQueue(const char* label) {
  dispatch_queue_t queue = dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL);
  dispatch_queue_set_specific(queue, &ownedQueueKey, (__bridge void*)queue, nullptr);
  return queue;
}

bool runsOn(dispatch_queue_t queue) { return dispatch_get_specific(&ownedQueueKey) == (__bridge void*)queue; }

void drainQueue(dispatch_queue_t queue, id keepAlive) {
  if (!runsOn(queue)) {
    dispatch_sync(queue, ^{});
    return;
  }
  // Released on the queue after the block in flight, which may still use it.
  if (keepAlive) dispatch_async(queue, ^{ (void)keepAlive; });
}

}  // namespace ac::platform::macos
