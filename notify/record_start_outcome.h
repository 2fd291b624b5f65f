// What a record-start click amounted to, decided from what the companion
// app's record-start script printed, its exit status and whether a recording
// is live. The script narrates refusals as a blockquote line headed by a
// marker ("> ❌ Lid closed ..."); that headline becomes the reason shown to
// the user, cleaned of anything that could hide or reorder text.
//
// Pure decisions, plus small readers of the capture file and the recording
// state file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ac::notify {

inline constexpr double notifyRecordStartWaitSeconds = 20.0;
inline constexpr std::size_t recordStartCaptureMaxBytes = 65536;
inline constexpr std::size_t recordStartReasonMaxChars = 160;
// Zero-width characters, directional marks, the byte-order mark and the
// bidirectional embeddings, overrides and isolates.
inline constexpr char32_t recordStartInvisibleScalars[] = {
    0x200B, 0x200C, 0x200D, 0x200E, 0x200F, 0xFEFF, 0x202A, 0x202B,
    0x202C, 0x202D, 0x202E, 0x2066, 0x2067, 0x2068, 0x2069,
};

inline constexpr std::string_view recordStartAlreadyRecordingMarker = "\u26A0\uFE0F";  // ⚠️
inline constexpr std::string_view recordStartFailureMarker = "\u274C";                 // ❌

enum class RecordStartMarker { alreadyRecording, failure };

struct RecordStartClickOutcome {
  enum class Kind { alreadyRecording, refused, couldNotRun, started, stillRunning };
  Kind kind = Kind::started;
  std::string reason;  // for alreadyRecording, refused and couldNotRun

  static RecordStartClickOutcome alreadyRecording(std::string r) { return {Kind::alreadyRecording, std::move(r)}; }
  static RecordStartClickOutcome refused(std::string r) { return {Kind::refused, std::move(r)}; }
  static RecordStartClickOutcome couldNotRun(std::string r) { return {Kind::couldNotRun, std::move(r)}; }
  static RecordStartClickOutcome started() { return {Kind::started, {}}; }
  static RecordStartClickOutcome stillRunning() { return {Kind::stillRunning, {}}; }
  bool operator==(const RecordStartClickOutcome&) const = default;
};

// A narrated refusal first (it outranks a live recording), then: not
// captured is stillRunning; a non-zero status with nothing live is refused
// with "record-start exited with status <n>."; otherwise started.
RecordStartClickOutcome classifyRecordStartClick(int status, std::string_view output, bool captured,
                                                 bool recordingIsLive);

struct RecordStartHeadline {
  RecordStartMarker marker;
  std::string text;
  bool operator==(const RecordStartHeadline&) const = default;
};

// The first line starting with ">" when it then starts with a marker and has
// a reason after it: the sanitized reason, cut to 160 characters (159 and
// "…" when longer).
std::optional<RecordStartHeadline> recordStartRefusalHeadline(std::string_view output);

// Drops control, format and invisible scalars and collapses whitespace runs
// (line separators and non-breaking spaces included) to single spaces.
std::string recordStartSanitizedReason(std::string_view text);

// The "pid=" line of the recording state file, as a positive 32-bit pid.
std::optional<int32_t> recordStartLivePID(std::string_view stateFile);

// "recording-state" in $VELA_STATE_DIR when set and not empty, else in the
// private state directory.
std::string recordStartStateFilePath();

// Whether the state file names a process that is still running.
bool recordStartRecordingIsLive(const std::string& stateFilePath = recordStartStateFilePath());

struct RecordStartBanner {
  std::string title;
  std::string body;
  bool operator==(const RecordStartBanner&) const = default;
};

// ("Couldn't start recording", reason) for refused and couldNotRun; nothing
// otherwise (a user already recording is not interrupted again).
std::optional<RecordStartBanner> recordStartClickBanner(const RecordStartClickOutcome& outcome);

// At most recordStartCaptureMaxBytes from the start of the capture file;
// nothing when it cannot be opened, empty for an empty file.
std::optional<std::string> recordStartCapturedPrefix(const std::string& path);

}  // namespace ac::notify
