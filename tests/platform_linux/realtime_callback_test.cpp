// The real-time rule, measured on the real callback threads: over a
// recording through the PulseAudio backend, the code inside every
// RealTimeScope (the IOProc block with the core's conversion, and the
// microphone chunk delivery) allocates nothing and takes no mutex. This
// binary replaces the global allocation functions and pthread_mutex_lock to
// count calls made inside a scope.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

#include "e2e_recording/e2e_fixture.h"
#include "platform/platform.h"
#include "recorder/recorder.h"
#include "support/dispatch.h"
#include "support/realtime.h"
#include "tests/support/log_capture.h"

namespace {
std::atomic<long> gAllocations{0};
std::atomic<long> gLocks{0};

void* counted(size_t n, size_t align = 0) {
  if (ac::RealTimeScope::active()) gAllocations.fetch_add(1, std::memory_order_relaxed);
  if (n == 0) n = 1;
  return align ? std::aligned_alloc(align, (n + align - 1) / align * align) : std::malloc(n);
}
}  // namespace

using LockFunction = int (*)(pthread_mutex_t*);
LockFunction realLock() {
  static const auto real = reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
  return real;
}
const LockFunction gResolvedEarly = realLock();  // before any thread runs

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (ac::RealTimeScope::active()) gLocks.fetch_add(1, std::memory_order_relaxed);
  return realLock()(mutex);
}

// The replacements pair malloc with free on purpose.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void* operator new(size_t n) {
  if (void* p = counted(n)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, std::align_val_t a) {
  if (void* p = counted(n, size_t(a))) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t n, std::align_val_t a) { return operator new(n, a); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return counted(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return counted(n); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { std::free(p); }

namespace ac::e2e {
namespace {

using RealTimeCallbackTest = E2E;

// The harness's players run in processes of their own, outside the counts.
TEST_F(RealTimeCallbackTest, CallbacksNeitherAllocateNorLockOverARecording) {
  keepLive({"speaker", "micfeed"});
  auto system = tone("speaker", 1000, 4), microphone = tone("micfeed", 440, 4);

  std::unique_ptr<platform::Platform> platform = platform::makePlatform();
  test::LogCapture logs;
  {
    ac::Recorder rec(*platform, s.path("rt.m4a"), true, true, std::nullopt, nullptr);
    rec.setup();
    {
      // The counters must see what a scope does, or zero would prove nothing.
      ac::RealTimeScope probe;
      ::operator delete(::operator new(16));
      std::mutex m;
      std::lock_guard lock(m);
    }
    ASSERT_EQ(gAllocations.exchange(0), 1);
    ASSERT_EQ(gLocks.exchange(0), 1);
    rec.start();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ac::Semaphore done;
    rec.stop([&] { done.signal(); });
    ASSERT_TRUE(done.wait(30));
  }
  const auto stats = logs.matching("stats: ");
  ASSERT_EQ(stats.size(), 1u);
  EXPECT_EQ(stats[0].find("sysAppended=0 "), std::string::npos) << stats[0];
  EXPECT_EQ(stats[0].find("micAppended=0 "), std::string::npos) << stats[0];
  EXPECT_EQ(gAllocations.load(), 0);
  EXPECT_EQ(gLocks.load(), 0);
}

}  // namespace
}  // namespace ac::e2e
