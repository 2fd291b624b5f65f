// Serial dispatch queues that their owner drains in its teardown.
//
// dispatch_sync onto the queue the caller is running on traps, and a block on
// such a queue can drop the last reference to the queue's owner (a sample
// handler releasing the capture output that calls it). A queue made here
// knows itself, so the owner's drain can tell that case apart.
// Objective-C++: include from .mm files only.
#pragma once

#ifndef __OBJC__
#error "owned_queue.h holds dispatch objects; include it from .mm files only"
#endif

#include <dispatch/dispatch.h>
#include <objc/objc.h>

namespace ac::platform::macos {

dispatch_queue_t makeOwnedSerialQueue(const char* label);

// True while the caller runs on `queue` (made by makeOwnedSerialQueue).
bool runsOn(dispatch_queue_t queue);

// Returns once every block queued on `queue` before the call has finished.
// Called from one of those blocks, nothing else runs on the queue and it
// returns at once; `keepAlive` then lives until the calling block returns.
void drainQueue(dispatch_queue_t queue, id keepAlive = nil);

}  // namespace ac::platform::macos
