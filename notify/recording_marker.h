// The names by which the companion app identifies a recording's note:
// "TRANSCRIPT_PENDING_<stamp>_<pid>" and, for a joined call,
// "TRANSCRIPT_PENDING_JOINED_<stamp>_<pid>". Click tokens may carry only these
// exact shapes, so a marker can never smuggle a path, a query or a snooze
// length into a URL or a script argument.
#pragma once

#include <string_view>

namespace ac::notify {

inline constexpr std::string_view recordingMarkerPrefix = "TRANSCRIPT_PENDING_";
inline constexpr std::string_view joinedRecordingMarkerPrefix = "TRANSCRIPT_PENDING_JOINED_";
inline constexpr std::size_t recordingMarkerMaxStampDigits = 12;
inline constexpr std::size_t recordingMarkerMaxPidDigits = 10;

// "TRANSCRIPT_PENDING_" + 1-12 ASCII digits + "_" + 1-10 ASCII digits, nothing
// else (digits of other scripts, a third field or trailing space refuse).
bool isRecordingMarker(std::string_view marker);

// "TRANSCRIPT_PENDING_JOINED_" + the same stamp "_" pid tail.
bool isJoinedRecordingMarker(std::string_view marker);

}  // namespace ac::notify
