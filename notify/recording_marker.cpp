#include "notify/recording_marker.h"

namespace ac::notify {
namespace {

bool isAsciiDigits(std::string_view s, std::size_t maxLength) {
  if (s.empty() || s.size() > maxLength) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

// "<stamp>_<pid>": exactly two fields.
bool isStampAndPid(std::string_view rest) {
  std::size_t sep = rest.find('_');
  if (sep == std::string_view::npos) return false;
  return isAsciiDigits(rest.substr(0, sep), recordingMarkerMaxStampDigits) &&
         isAsciiDigits(rest.substr(sep + 1), recordingMarkerMaxPidDigits);
}

bool hasShape(std::string_view marker, std::string_view prefix) {
  return marker.starts_with(prefix) && isStampAndPid(marker.substr(prefix.size()));
}

}  // namespace

bool isRecordingMarker(std::string_view marker) { return hasShape(marker, recordingMarkerPrefix); }

bool isJoinedRecordingMarker(std::string_view marker) { return hasShape(marker, joinedRecordingMarkerPrefix); }

}  // namespace ac::notify
