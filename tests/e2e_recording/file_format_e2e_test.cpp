// The recording as the tools people open it with read it: ffmpeg/ffprobe,
// GStreamer (gst-discoverer-1.0 and a gst-launch-1.0 decode), mediainfo and
// AtomicParsley, on one stopped and one SIGKILLed recording of tones that
// began before the recording did. Eleven seconds each: several 5-second
// fragments, so a reader that stops at the first one shows.
#include <signal.h>
#include <time.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <regex>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kRecordSeconds = 11;
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

class FileFormatE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

TEST_F(FileFormatE2E, StoppedAndKilledRecordingsPlayBothTracksNamedDatedAndTimedInEveryTool) {
  auto system = tone("speaker", 440, 60);
  auto mic = tone("micfeed", 1000, 60);
  for (const int signal : {SIGTERM, SIGKILL}) {
    SCOPED_TRACE(signal == SIGTERM ? "stopped" : "killed");
    std::filesystem::remove(s.path("call.m4a"));
    const time_t startedAt = time(nullptr);
    Recording rec(s, {});
    ASSERT_TRUE(rec.waitReady()) << "the recording did not start";
    sleepSeconds(kRecordSeconds);
    rec.stop(signal);
    const Readings r = read(s, rec.outputPath);
    ASSERT_EQ(r.ffmpegTracks.size(), 2u);
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
    EXPECT_GT(decoded, signal == SIGTERM ? kRecordSeconds - 1 : 9.5);
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
