// The system IOProc: turns each callback's tap buffers into a sample buffer
// stamped with host time and hands it to the system write queue through the
// state's ring. handleSystemBuffer runs on the IOProc thread: it never
// blocks, takes no lock, allocates nothing and logs nothing; what it would
// log by the rate rules travels in the ring and drainSystemPeriods logs it on
// the write queue. The other functions run under the rebuild lock, never on
// the IOProc thread.
#pragma once

#include <cstdint>

#include "capture/system_capture_state.h"

namespace ac::capture {

// The scratch list that carries a sub-range of the callback's buffers.
inline constexpr int64_t maxTapScratchBuffers = 64;

// Sizes the scratch list for a selection of `minimumBuffers` buffers (2 to
// 64 entries). False when the selection exceeds the cap.
bool ensureTapScratch(SystemCapture::State& s, uint32_t channels, int64_t minimumBuffers);

void handleSystemBuffer(SystemCapture::State& s, const platform::AudioBufferList* inputData,
                        const platform::AudioTimeStamp* inputTime);

// On the system write queue: hands every waiting period to the sink and logs
// what the callbacks reported.
void drainSystemPeriods(SystemCapture::State& s);

// Creates an IOProc on `device` whose block holds the state weakly.
platform::OSStatus createSystemIOProc(SystemCapture::State& s, platform::AudioObjectID device,
                                      platform::IOProcID& out);

// Creates and starts an IOProc on `device`; stores it in ioProcID on success
// (or when a failed start cannot be undone, so teardown still sees it).
bool startIOProc(SystemCapture::State& s, platform::AudioObjectID device);

// hostTime * numer / denom. An overflow, a zero denominator or a result
// beyond the signed range is a programming error and aborts.
int64_t hostTimeToNanos(uint64_t hostTime, uint32_t numer, uint32_t denom);

}  // namespace ac::capture
