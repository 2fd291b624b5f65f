// Measuring the tap's format and locating its buffers in the aggregate's
// list, then storing both for the IOProc. Callers hold the rebuild lock and
// guarantee that no IOProc which could read the stored fields is live.
#pragma once

#include <optional>
#include <string>

#include "capture/system_capture_state.h"

namespace ac::capture {

// Stores the tap's run in the aggregate (or no selection) and returns the
// "aggBufs=… select=…" log fragment.
std::string refreshTapBufferRange(SystemCapture::State& s, platform::AudioObjectID aggregate,
                                  const std::optional<std::string>& outputUID);

// Adopts `known` (or a fresh read of the tap format) when usable, refreshes
// the selection against `aggregate` and logs one "sys topology: reason=…"
// line. True when a format was adopted.
bool refreshTapTopology(SystemCapture::State& s, const std::string& reason,
                        const std::optional<platform::StreamFormat>& known, bool countsAsChange,
                        platform::AudioObjectID aggregate, const std::optional<std::string>& outputUID);

}  // namespace ac::capture
