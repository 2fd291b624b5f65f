// The file's header (ftyp then moov) as libavformat writes it for a
// fragmented movie, edited into what players, taggers and editors expect
// before it reaches the disk:
//   - an m4a brand ("M4A ", compatible with isom/iso5/iso6/mp41): m4a
//     taggers refuse a file whose major brand is "iso5";
//   - every track enabled and in no alternate group;
//   - per track, an edit list that starts presentation after the encoder's
//     priming, and iTunes-style user data: the track's name beside the
//     handler name, and the same priming as gapless-playback data;
//   - a 16-byte `free` box first in mvex, room for the `mehd` that finish()
//     writes once the length is known.
// libavformat writes none of these for a fragmented MP4 (it cannot know the
// edit list's length, names tracks only in QuickTime files, and puts tracks
// in alternate groups whenever it marks more than one as default).
//
// The durations of a movie whose length is unknown when its header is
// written stay zero, which every reader takes as "read the fragments"; a
// killed recording keeps that header. A finished one gets its durations
// written in place at the offsets the plan records, so the header never
// changes size and no fragment moves.
//
// Pure functions on bytes; no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ac::platform::linux_backend {

// What the header says of one track, in the order of the moov's traks.
struct HeaderTrack {
  std::string name;
  // Media samples before the first presented one (the encoder's priming).
  int64_t primingSamples = 0;
};

// A duration field of the edited header: its offset in the file and width.
struct DurationField {
  uint64_t offset = 0;
  int bytes = 4;
};

struct TrackDurationFields {
  uint32_t mediaTimescale = 0;
  int64_t primingSamples = 0;
  DurationField tkhd, mdhd, elst;
};

// Where the durations of a finished file go.
struct DurationPlan {
  uint32_t movieTimescale = 0;
  DurationField mvhd;
  uint64_t mehdOffset = 0;  // the reserved `free` box
  std::vector<TrackDurationFields> tracks;
};

struct EditedHeader {
  std::string bytes;
  DurationPlan plan;
};

// Edits `header`, which must be exactly one ftyp followed by one moov with
// one trak per entry of `tracks`. Nothing with `why` set when the bytes are
// not such a header (a box overrunning its parent, nesting deeper than a
// movie header goes, a missing box).
std::optional<EditedHeader> editHeader(std::string_view header, const std::vector<HeaderTrack>& tracks,
                                       std::string& why);

// The bytes to write at each offset once every track's media duration
// (`mediaDurations`, in the track's media timescale, priming included) is
// known. A duration too long for its field is left out; its field stays
// zero ("unknown").
std::vector<std::pair<uint64_t, std::string>> durationPatches(const DurationPlan& plan,
                                                              const std::vector<int64_t>& mediaDurations);

}  // namespace ac::platform::linux_backend
