#include "platform/linux/mp4_header_editor.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace ac::platform::linux_backend {
namespace {

// Deep enough for moov/trak/mdia/minf/stbl/stsd; anything deeper is not a
// header libavformat wrote.
constexpr int kMaxDepth = 8;
constexpr uint32_t kMp4ReservedBox = 16;  // free box later rewritten as a version-0 mehd

struct Box {
  std::string type;
  std::string payload;  // leaves only
  std::vector<Box> children;
  bool container = false;
  uint64_t at = 0;  // offset in the serialized header
};

bool isContainer(std::string_view type) {
  static constexpr std::array<std::string_view, 9> kContainers = {"moov", "trak", "mdia", "minf", "stbl",
                                                                   "mvex", "edts", "udta", "dinf"};
  return std::find(kContainers.begin(), kContainers.end(), type) != kContainers.end();
}

uint64_t readBE(std::string_view b, size_t at, int bytes) {
  uint64_t v = 0;
  for (int i = 0; i < bytes; ++i) v = (v << 8) | uint8_t(b[at + i]);
  return v;
}

std::string be(uint64_t v, int bytes) {
  std::string out(bytes, '\0');
  for (int i = bytes - 1; i >= 0; --i, v >>= 8) out[i] = char(v & 0xff);
  return out;
}

bool fail(std::string& why, const char* what) {
  why = what;
  return false;
}

bool parse(std::string_view bytes, int depth, std::vector<Box>& out, std::string& why) {
  if (depth > kMaxDepth) return fail(why, "boxes nested deeper than a movie header");
  size_t at = 0;
  while (at < bytes.size()) {
    if (bytes.size() - at < 8) return fail(why, "a box header is cut short");
    uint64_t size = readBE(bytes, at, 4);
    size_t head = 8;
    if (size == 1) {
      if (bytes.size() - at < 16) return fail(why, "a box header is cut short");
      size = readBE(bytes, at + 8, 8);
      head = 16;
    }
    if (size < head || size > bytes.size() - at) return fail(why, "a box overruns its parent");
    Box box;
    box.type = std::string(bytes.substr(at + 4, 4));
    box.container = isContainer(box.type);
    const std::string_view body = bytes.substr(at + head, size - head);
    if (box.container) {
      if (!parse(body, depth + 1, box.children, why)) return false;
    } else {
      box.payload = std::string(body);
    }
    out.push_back(std::move(box));
    at += size;
  }
  return true;
}

// Appends `box` to `out`, noting where each box starts.
void serialize(Box& box, std::string& out) {
  box.at = out.size();
  out += std::string(4, '\0') + box.type;
  if (box.container) {
    for (Box& child : box.children) serialize(child, out);
  } else {
    out += box.payload;
  }
  out.replace(box.at, 4, be(out.size() - box.at, 4));
}

Box leaf(std::string type, std::string payload) { return Box{std::move(type), std::move(payload), {}, false, 0}; }
Box container(std::string type, std::vector<Box> children) {
  return Box{std::move(type), {}, std::move(children), true, 0};
}

Box* child(Box& parent, std::string_view type) {
  for (Box& b : parent.children) {
    if (b.type == type) return &b;
  }
  return nullptr;
}

// The full-box version of a leaf, or -1 when its payload is too short to
// hold the fields read at `needV0`/`needV1` bytes.
int version(const Box& box, size_t needV0, size_t needV1) {
  if (box.payload.empty()) return -1;
  const int v = uint8_t(box.payload[0]);
  if (v > 1 || box.payload.size() < (v ? needV1 : needV0)) return -1;
  return v;
}

// mvhd and mdhd share their layout up to the duration.
bool timescaleAndDuration(const Box& box, uint32_t& timescale, size_t& durationAt, int& bytes) {
  const int v = version(box, 20, 32);
  if (v < 0) return false;
  timescale = uint32_t(readBE(box.payload, v ? 20 : 12, 4));
  durationAt = v ? 24 : 16;
  bytes = v ? 8 : 4;
  return timescale > 0;
}

std::string boxBytes(std::string_view type, const std::string& payload) {
  return be(payload.size() + 8, 4) + std::string(type) + payload;
}

// iTunes-style metadata for one track: its name (the title GStreamer and
// mediainfo show) and the gapless-playback note "iTunSMPB", which tells
// readers that skip priming only on a sample table (FFmpeg in a fragmented
// file) how many samples to drop.
std::string trackMeta(const HeaderTrack& track) {
  char smpb[64];
  std::snprintf(smpb, sizeof smpb, " 00000000 %08X 00000000 0000000000000000", unsigned(track.primingSamples));
  const std::string text = be(1, 4) + be(0, 4);  // well-known type UTF-8, default locale
  const std::string ilst = boxBytes("\xa9nam", boxBytes("data", text + track.name)) +
                           boxBytes("----", boxBytes("mean", be(0, 4) + "com.apple.iTunes") +
                                                boxBytes("name", be(0, 4) + "iTunSMPB") +
                                                boxBytes("data", text + smpb));
  const std::string hdlr = boxBytes("hdlr", be(0, 8) + "mdirappl" + std::string(9, '\0'));
  return be(0, 4) + hdlr + boxBytes("ilst", ilst);
}

DurationField field(const Box& box, size_t payloadOffset, int bytes) { return {box.at + 8 + payloadOffset, bytes}; }

// Enables `trak`, takes it out of any alternate group, and adds its edit
// list and user data.
bool editTrack(Box& trak, const HeaderTrack& track, std::string& why) {
  Box* mdia = child(trak, "mdia");
  Box* tkhd = child(trak, "tkhd");
  const int tv = tkhd ? version(*tkhd, 36, 48) : -1;
  if (tv < 0 || !mdia || !child(*mdia, "mdhd") || child(trak, "edts")) {
    return fail(why, "a track without tkhd or mdhd, or with an edit list already");
  }
  if (track.primingSamples < 0 || track.primingSamples > std::numeric_limits<uint32_t>::max() / 2) {
    return fail(why, "priming out of range");
  }
  // Every track plays: enabled and in movie, and in no alternate group
  // (a group means "play one of these").
  tkhd->payload[3] = char(uint8_t(tkhd->payload[3]) | 0x3);
  tkhd->payload.replace(tv ? 46 : 34, 2, be(0, 2));
  // One edit: the whole media from the first captured sample on, its
  // length written at finish (zero until then: "to the end of the media").
  const std::string elst = be(0, 4) + be(1, 4) + be(0, 4) + be(track.primingSamples, 4) + be(0x00010000, 4);
  trak.children.insert(trak.children.begin() + 1, container("edts", {leaf("elst", elst)}));
  Box* udta = child(trak, "udta");
  if (!udta) udta = &trak.children.emplace_back(container("udta", {}));
  udta->children.push_back(leaf("meta", trackMeta(track)));
  return true;
}

// Where the serialized `trak`'s durations are.
bool planTrack(Box& trak, const HeaderTrack& track, TrackDurationFields& t) {
  Box& tkhd = *child(trak, "tkhd");
  Box& mdhd = *child(*child(trak, "mdia"), "mdhd");
  size_t at = 0;
  int bytes = 0;
  if (!timescaleAndDuration(mdhd, t.mediaTimescale, at, bytes)) return false;
  const int tv = version(tkhd, 36, 48);
  t.primingSamples = track.primingSamples;
  t.mdhd = field(mdhd, at, bytes);
  t.tkhd = field(tkhd, tv ? 28 : 20, tv ? 8 : 4);
  t.elst = field(child(trak, "edts")->children.front(), 8, 4);
  return true;
}

}  // namespace

std::optional<EditedHeader> editHeader(std::string_view header, const std::vector<HeaderTrack>& tracks,
                                       std::string& why) {
  std::vector<Box> top;
  if (!parse(header, 0, top, why)) return std::nullopt;
  if (top.size() != 2 || top[0].type != "ftyp" || top[1].type != "moov" || top[0].payload.size() < 8) {
    why = "not one ftyp and one moov";
    return std::nullopt;
  }
  Box& ftyp = top[0];
  Box& moov = top[1];
  ftyp.payload = "M4A " + ftyp.payload.substr(4, 4) + "M4A isomiso5iso6mp41";

  Box* mvhd = child(moov, "mvhd");
  Box* mvex = child(moov, "mvex");
  if (!mvhd || !mvex) {
    why = "no mvhd or mvex";
    return std::nullopt;
  }
  mvex->children.insert(mvex->children.begin(), leaf("free", std::string(kMp4ReservedBox - 8, '\0')));

  std::vector<Box*> traks;
  for (Box& b : moov.children) {
    if (b.type == "trak") traks.push_back(&b);
  }
  if (traks.size() != tracks.size()) {
    why = "the moov holds " + std::to_string(traks.size()) + " tracks, not " + std::to_string(tracks.size());
    return std::nullopt;
  }
  for (size_t k = 0; k < traks.size(); ++k) {
    if (!editTrack(*traks[k], tracks[k], why)) return std::nullopt;
  }

  EditedHeader edited;
  for (Box& b : top) serialize(b, edited.bytes);

  DurationPlan& plan = edited.plan;
  size_t at = 0;
  int bytes = 0;
  if (!timescaleAndDuration(*mvhd, plan.movieTimescale, at, bytes)) {
    why = "an mvhd too short";
    return std::nullopt;
  }
  plan.mvhd = field(*mvhd, at, bytes);
  plan.mehdOffset = mvex->children.front().at;
  for (size_t k = 0; k < traks.size(); ++k) {
    TrackDurationFields t;
    if (!planTrack(*traks[k], tracks[k], t)) {
      why = "an mdhd too short";
      return std::nullopt;
    }
    plan.tracks.push_back(t);
  }
  return edited;
}

std::vector<std::pair<uint64_t, std::string>> durationPatches(const DurationPlan& plan,
                                                              const std::vector<int64_t>& mediaDurations) {
  std::vector<std::pair<uint64_t, std::string>> patches;
  auto put = [&](const DurationField& f, uint64_t value) {
    if (f.bytes == 4 && value > std::numeric_limits<uint32_t>::max()) return false;
    patches.emplace_back(f.offset, be(value, f.bytes));
    return true;
  };
  uint64_t movie = 0;
  for (size_t k = 0; k < plan.tracks.size() && k < mediaDurations.size(); ++k) {
    const TrackDurationFields& t = plan.tracks[k];
    const int64_t media = std::max<int64_t>(mediaDurations[k], 0);
    const uint64_t presented = uint64_t(std::max<int64_t>(media - t.primingSamples, 0));
    // Rounded up: an edit a tick short would cut the track's last samples.
    const unsigned __int128 scaled = (unsigned __int128)presented * plan.movieTimescale + t.mediaTimescale - 1;
    const uint64_t inMovie = uint64_t(scaled / t.mediaTimescale);
    put(t.mdhd, uint64_t(media));
    if (put(t.tkhd, inMovie) && put(t.elst, inMovie)) movie = std::max(movie, inMovie);
  }
  if (movie > 0 && put(plan.mvhd, movie) && movie <= std::numeric_limits<uint32_t>::max()) {
    patches.emplace_back(plan.mehdOffset, be(16, 4) + "mehd" + be(0, 4) + be(movie, 4));
  }
  return patches;
}

}  // namespace ac::platform::linux_backend
