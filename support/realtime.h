// Marks the code a real-time audio callback runs (an IOProc block, a
// microphone chunk delivery) on the calling thread. Nothing inside may
// allocate, lock, block or log; the mark lets a test count violations on the
// real callback thread, and costs one thread-local increment.
#pragma once

namespace ac {

class RealTimeScope {
 public:
  RealTimeScope() { ++depth(); }
  ~RealTimeScope() { --depth(); }
  RealTimeScope(const RealTimeScope&) = delete;
  RealTimeScope& operator=(const RealTimeScope&) = delete;
  static bool active() { return depth() > 0; }

 private:
  static int& depth() {
    static thread_local int d = 0;
    return d;
  }
};

}  // namespace ac
