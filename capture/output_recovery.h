// Recovery from a new default output device or a new tap format. Every
// handler runs on the device-watch queue holding the rebuild lock for its
// whole run, and never touches anything a live IOProc could read unless
// that IOProc was proven stopped or destroyed.
#pragma once

#include <string>

#include "capture/system_capture_state.h"

namespace ac::capture {

// Listeners deliver on the state's device-watch queue. Installing either
// listener also queues one check, for a change that happened before the
// listener existed (while an armed recorder waited for go, say). Callers:
// not the device-watch queue.
void installDefaultOutputListener(SystemCapture::State& s);
void removeDefaultOutputListener(SystemCapture::State& s);
void installTapFormatListener(SystemCapture::State& s);
void removeTapFormatListener(SystemCapture::State& s);

// Rebuilds the aggregate on the new default output; one retry after
// rebuildRetryDelaySeconds, then the once-only notice.
void handleDefaultOutputChange(SystemCapture::State& s);
// Restarts the IOProc to adopt a new, usable tap format.
void handleTapFormatChange(SystemCapture::State& s);

// Replaces the aggregate (and its IOProc) with one on newOutputUID; before
// start() only the aggregate, which start() then records. The caller holds
// the rebuild lock.
bool rebuildAggregate(SystemCapture::State& s, const std::string& newOutputUID);

// Posts "System audio stopped" at most once per recording.
void notifyRebuildFailureOnce(SystemCapture::State& s);

}  // namespace ac::capture
