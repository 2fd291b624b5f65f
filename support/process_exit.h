// Ending the process from any thread.
#pragma once

namespace ac {

// Flushes standard output and standard error, then ends the process at once
// with `status`, without running static destructors: the modes that call it
// still have queues and capture threads alive, which must not see globals
// torn down underneath them.
[[noreturn]] void exitProcess(int status);

}  // namespace ac
