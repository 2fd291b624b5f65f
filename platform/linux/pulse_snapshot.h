// What the sound server has right now: its default sink and source and every
// sink and source with the few facts the seams report.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <pulse/sample.h>

#include "platform/audio_types.h"

namespace ac::platform::linux_backend {

class PulseConnection;

struct SinkInfo {
  std::string name;
  std::string description;
  std::string monitorSource;  // the source that carries what the sink plays
  pa_sample_spec spec{};
};

struct SourceInfo {
  std::string name;
  std::string description;
  pa_sample_spec spec{};
  bool isMonitor = false;
};

struct Snapshot {
  std::string defaultSink;
  std::string defaultSource;
  std::vector<SinkInfo> sinks;      // in the server's index order
  std::vector<SourceInfo> sources;  // monitors included

  const SinkInfo* sink(const std::string& name) const;
  // A source that is not a monitor (a microphone or another real input).
  const SourceInfo* inputSource(const std::string& name) const;
};

// Reads defaults, sinks and sources with pipelined requests. Blocks; never
// call it on the connection's loop thread.
OSStatus readSnapshot(PulseConnection& connection, Snapshot& out);

// A PulseAudio sample format as a stream description (interleaved, packed, native
// layout of PulseAudio's formats); a zeroed description for formats the
// seams have no words for (compressed, a-law, mu-law).
StreamFormat streamFormatFor(const pa_sample_spec& spec);

}  // namespace ac::platform::linux_backend
