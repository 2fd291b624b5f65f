// The recording as the tools people open it with read it: ffmpeg/ffprobe,
// GStreamer (gst-discoverer-1.0 and a gst-launch-1.0 decode), mediainfo and
// AtomicParsley, on one stopped and one SIGKILLed recording of tones that
// began before the recording did (the system's on the speaker sink, the
// microphone's on micfeed, which "mic" hears). Eleven seconds each: several
// 5-second fragments, so a reader that stops at the first one shows. The
// stopped one is also the whole run as its caller and log see it.
#include <signal.h>
#include <time.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <regex>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kRecordSeconds = 11, kSystemHz = 440, kMicHz = 1000;
const char* const kNames[] = {"System audio", "Microphone"};

// What each tool says of one file, read once.
struct Readings {
  std::string ffprobe, mediainfo, discoverer, atomicParsley;
  bool atomicParsleyAccepts = false;
  std::vector<Pcm> ffmpegTracks, gstTracks;
};

std::string run(const Scratch& s, const std::string& exe, const std::vector<std::string>& args, bool* ok = nullptr) {
  ExeResult r = runTool(s, "/usr/bin/" + exe, args, 60);
  if (ok) *ok = r.exited && r.status == 0;
  return r.out + r.err;
}

Readings read(const Scratch& s, const std::string& file) {
  Readings r;
  r.ffprobe = run(s, "ffprobe", {"-v", "error", "-of", "flat", "-show_entries",
                                 "format=duration:format_tags=creation_time:stream_disposition=default:stream_tags",
                                 file});
  r.mediainfo = run(s, "mediainfo", {"--Inform=General;%Duration%|%Encoded_Date%\\n\nAudio;%Title%|%AlternateGroup%\\n", file});
  r.discoverer = run(s, "gst-discoverer-1.0", {"-v", file});
  r.atomicParsley = run(s, "AtomicParsley", {file, "-T"}, &r.atomicParsleyAccepts);
  r.ffmpegTracks = decodeTracks(s, file);
  for (size_t k = 0; k < r.ffmpegTracks.size(); ++k) {  // GStreamer's own demuxer and decoder
    const std::string raw = s.path("gst" + std::to_string(k) + ".f32");
    run(s, "gst-launch-1.0", {"-q", "filesrc", "location=" + file, "!", "qtdemux", "name=d",
                              "d.audio_" + std::to_string(k), "!", "decodebin", "!", "audioconvert", "!",
                              "audio/x-raw,format=F32LE,channels=1", "!", "filesink", "location=" + raw});
    r.gstTracks.push_back(pcmFromFloatBytes(r.ffmpegTracks[k].rate, Scratch::contents(raw)));
  }
  return r;
}

// The first capture of `pattern` in `text`, or "".
std::string find(const std::string& text, const std::string& pattern) {
  std::smatch m;
  return std::regex_search(text, m, std::regex(pattern)) ? m[1].str() : "";
}

// The length each tool reports, in seconds (NaN when it reports none).
std::map<std::string, double> reportedSeconds(const Readings& r) {
  auto seconds = [](const std::string& text, double unit) { return text.empty() ? NAN : std::stod(text) * unit; };
  const std::string gst = find(r.discoverer, R"(\n  Duration: 0:(\d+:[\d.]+))");
  return {{"ffprobe", seconds(find(r.ffprobe, R"(format\.duration="([\d.]+))"), 1)},
          {"mediainfo", seconds(find(r.mediainfo, R"(^(\d+)\|)"), 0.001)},
          {"gst-discoverer", gst.empty() ? NAN : seconds(gst.substr(0, 2), 60) + seconds(gst.substr(3), 1)}};
}

double longest(const std::vector<Pcm>& tracks) {
  double s = 0;
  for (const Pcm& t : tracks) s = std::max(s, t.seconds());
  return s;
}

double rms(const Pcm& pcm, double seconds) {
  const size_t n = std::min(pcm.samples.size(), size_t(seconds * pcm.rate));
  double sum = 0;
  for (size_t i = 0; i < n; ++i) sum += double(pcm.samples[i]) * pcm.samples[i];
  return n ? std::sqrt(sum / double(n)) : 0;
}

// A UTC date-time as the tools print it ("2026-11-22T11:25:07.000000Z",
// "2026-11-22 11:25:07 UTC"); 0 when it is none.
time_t utc(std::string text) {
  struct tm tm {};
  if (text.size() < 19) return 0;
  text[10] = ' ';
  return strptime(text.substr(0, 19).c_str(), "%Y-%m-%d %H:%M:%S", &tm) ? timegm(&tm) : 0;
}

// A recording stopped by SIGTERM after `recorded` seconds of "ready": its
// exit, standard output, log and the length and content of its tracks.
void expectWholeRun(const Recording& r, const ExeResult& result, const std::vector<Pcm>& tracks, double recorded) {
  EXPECT_TRUE(result.exited && result.status == 0) << result.status;
  const std::string pid = std::to_string(r.pid());
  EXPECT_EQ(result.out, "pid=" + pid + "\n");
  expectDominant(tracks[0], kSystemHz, kMicHz);
  expectDominant(tracks[1], kMicHz, kSystemHz);
  // Capture starts a few milliseconds before "ready" is logged and ends a
  // few after the signal. Decoded (the file's edit list skips the encoder's
  // priming), a track may end padded to a whole 1024-frame AAC frame. 50 ms
  // less or 150 ms more means a late time-line anchor, lost audio or a tail
  // cut off.
  for (const Pcm& track : tracks) {
    EXPECT_GE(track.seconds(), recorded - 0.05) << "track at " << track.rate << " Hz";
    EXPECT_LE(track.seconds(), recorded + 0.15) << "track at " << track.rate << " Hz";
  }
  const std::string out = r.outputPath, log = r.log();
  EXPECT_TRUE(inOrder(log, {"starting capture → " + out, "auth: mic=3", "writer started → " + out,
                            "system IOProc started", "mic capture session running", "ready, pid=" + pid,
                            "signal received", "stopping", "finalizing", "writer done status=2",
                            "finalize-ok call.m4a pid=" + pid + ".", "exit"}))
      << log;
  EXPECT_EQ(logLines(log).back(), "exit");
  EXPECT_TRUE(std::regex_search(
      log, std::regex(R"(\] stats: ioproc=[1-9]\d* sysAppended=[1-9]\d* sysFail=0 micAppended=[1-9]\d* micFail=0 )"
                      R"(sysMaxAbs=0\.[1-9]\d* micMaxAbs=0\.[1-9]\d* micEndedEarly=false sysDataFail=0 sysFmtRate=\d+\.0 )"
                      R"(sysFmtCh=2 sysFmtChanges=0 sysAacRate=\d+\.0 sysAacClamped=false sysTapBuf=0/1 )"
                      R"(micFmtRate=48000\.0 micFmtCh=1 micFmtChanges=0\n)")))
      << log;
}

class FileFormatE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

TEST_F(FileFormatE2E, StoppedAndKilledRecordingsPlayBothTracksNamedDatedAndTimedInEveryTool) {
  auto system = tone("speaker", kSystemHz, 60);
  auto mic = tone("micfeed", kMicHz, 60);
  for (const int signal : {SIGTERM, SIGKILL}) {
    SCOPED_TRACE(signal == SIGTERM ? "stopped" : "killed");
    std::filesystem::remove(s.path("call.m4a"));
    const time_t startedAt = time(nullptr);
    Recording rec(s, {});
    ASSERT_TRUE(rec.waitReady()) << "the recording did not start";
    const auto ready = std::chrono::steady_clock::now();
    sleepSeconds(kRecordSeconds);
    const double recorded = secondsSince(ready);
    const ExeResult result = rec.stop(signal);
    const Readings r = read(s, rec.outputPath);
    ASSERT_EQ(r.ffmpegTracks.size(), 2u);
    if (signal == SIGTERM) expectWholeRun(rec, result, r.ffmpegTracks, recorded);
    for (int k = 0; k < 2; ++k) {
      const std::string stream = R"(streams\.stream\.)" + std::to_string(k) + R"(\.)";
      EXPECT_EQ(find(r.ffprobe, stream + R"(disposition\.default=(\d))"), "1") << "ffprobe: track " << k << " enabled";
      EXPECT_EQ(find(r.ffprobe, stream + R"(tags\.handler_name="([^"]*))"), kNames[k]) << "ffprobe handler name";
      // Title|alternate group (none)
      EXPECT_NE(r.mediainfo.find(std::string("\n") + kNames[k] + "|\n"), std::string::npos) << r.mediainfo;
      const size_t at = r.discoverer.find("audio #" + std::to_string(k + 1) + ":");
      ASSERT_NE(at, std::string::npos) << r.discoverer;
      const std::string stanza = r.discoverer.substr(at, r.discoverer.find("Stream ID", at) - at);
      EXPECT_EQ(find(stanza, R"(\n\s*title: ([^\n]*))"), kNames[k]) << "gst-discoverer title";
    }
    for (const auto& [tool, created] : std::map<std::string, std::string>{
             {"ffprobe", find(r.ffprobe, R"(creation_time="([^"]*))")},
             {"mediainfo", find(r.mediainfo, R"(\|(.*UTC))")},
             {"gst-discoverer", find(r.discoverer, R"(datetime: (\S+))")}}) {
      EXPECT_NEAR(double(utc(created)), double(startedAt), 30) << tool << " creation time \"" << created << "\"";
    }
    EXPECT_TRUE(r.atomicParsleyAccepts) << r.atomicParsley;

    // Killed after 11 s, the file holds two whole 5-second fragments.
    const double decoded = longest(r.ffmpegTracks);
    if (signal == SIGKILL) { EXPECT_GT(decoded, 9.5); }
    EXPECT_NEAR(longest(r.gstTracks), decoded, 0.1) << "GStreamer's decode";
    for (const auto& [tool, seconds] : reportedSeconds(r)) {
      // GStreamer guesses an unfinished file's length from its first fragment.
      if (signal == SIGKILL && tool == "gst-discoverer") continue;
      EXPECT_NEAR(seconds, decoded, 0.1) << tool;
    }
    // The track that reached the recorder first starts the file's time line
    // with the tone it heard; priming presented as audio is near silence.
    for (const auto* tracks : {&r.ffmpegTracks, &r.gstTracks}) {
      std::string levels;
      double loudest = 0;
      for (const Pcm& t : *tracks) {
        loudest = std::max(loudest, rms(t, 0.010));
        levels += " " + std::to_string(rms(t, 0.010));
      }
      EXPECT_GT(loudest, 0.05) << (tracks == &r.gstTracks ? "GStreamer" : "ffmpeg") << ": first 10 ms at" << levels;
    }
  }
}

}  // namespace
}  // namespace ac::e2e
