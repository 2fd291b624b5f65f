#include "platform/linux/pulse_snapshot.h"

#include <pulse/introspect.h>

#include "platform/linux/pulse_connection.h"

namespace ac::platform::linux_backend {

const SinkInfo* Snapshot::sink(const std::string& name) const {
  for (const auto& s : sinks)
    if (s.name == name) return &s;
  return nullptr;
}

const SourceInfo* Snapshot::inputSource(const std::string& name) const {
  for (const auto& s : sources)
    if (s.name == name && !s.isMonitor) return &s;
  return nullptr;
}

namespace {

std::string text(const char* s) { return s ? s : ""; }

struct Reading {
  PulseConnection* connection;
  Snapshot* out;
};

void onServer(pa_context*, const pa_server_info* info, void* userdata) {
  auto* r = static_cast<Reading*>(userdata);
  if (info) {
    r->out->defaultSink = text(info->default_sink_name);
    r->out->defaultSource = text(info->default_source_name);
  }
  r->connection->signal();
}

void onSink(pa_context*, const pa_sink_info* info, int eol, void* userdata) {
  auto* r = static_cast<Reading*>(userdata);
  if (eol == 0 && info)
    r->out->sinks.push_back({text(info->name), text(info->description), text(info->monitor_source_name),
                             info->sample_spec});
  if (eol != 0) r->connection->signal();
}

void onSource(pa_context*, const pa_source_info* info, int eol, void* userdata) {
  auto* r = static_cast<Reading*>(userdata);
  if (eol == 0 && info)
    r->out->sources.push_back({text(info->name), text(info->description), info->sample_spec,
                               info->monitor_of_sink != PA_INVALID_INDEX});
  if (eol != 0) r->connection->signal();
}

}  // namespace

OSStatus readSnapshot(PulseConnection& connection, Snapshot& out) {
  Snapshot fresh;
  Reading reading{&connection, &fresh};
  PulseConnection::Lock lock(connection);
  if (OSStatus st = connection.ensureReady()) return st;
  pa_context* c = connection.context();
  // Sent together, answered in order: one round trip's worth of waiting.
  pa_operation* server = pa_context_get_server_info(c, onServer, &reading);
  pa_operation* sinks = pa_context_get_sink_info_list(c, onSink, &reading);
  pa_operation* sources = pa_context_get_source_info_list(c, onSource, &reading);
  OSStatus st = connection.await(server);
  OSStatus st2 = connection.await(sinks);
  OSStatus st3 = connection.await(sources);
  if (st || st2 || st3) return st ? st : st2 ? st2 : st3;
  out = std::move(fresh);
  return kNoErr;
}

StreamFormat streamFormatFor(const pa_sample_spec& spec) {
  StreamFormat f;
  uint32_t bits = 0;
  bool isFloat = false, bigEndian = false;
  switch (spec.format) {
    case PA_SAMPLE_U8: bits = 8; break;
    case PA_SAMPLE_S16LE: bits = 16; break;
    case PA_SAMPLE_S16BE: bits = 16; bigEndian = true; break;
    case PA_SAMPLE_S24LE: bits = 24; break;
    case PA_SAMPLE_S24BE: bits = 24; bigEndian = true; break;
    case PA_SAMPLE_S24_32LE: bits = 24; break;
    case PA_SAMPLE_S24_32BE: bits = 24; bigEndian = true; break;
    case PA_SAMPLE_S32LE: bits = 32; break;
    case PA_SAMPLE_S32BE: bits = 32; bigEndian = true; break;
    case PA_SAMPLE_FLOAT32LE: bits = 32; isFloat = true; break;
    case PA_SAMPLE_FLOAT32BE: bits = 32; isFloat = true; bigEndian = true; break;
    default: return f;
  }
  f.sampleRate = spec.rate;
  f.formatID = kAudioFormatLinearPCM;
  f.formatFlags = (isFloat ? kAudioFormatFlagIsFloat : 0) | (bigEndian ? kAudioFormatFlagIsBigEndian : 0);
  // Unsigned 8-bit carries no signed flag; 24-in-32 is the one unpacked layout.
  if (!isFloat && spec.format != PA_SAMPLE_U8) f.formatFlags |= kAudioFormatFlagIsSignedInteger;
  bool padded = spec.format == PA_SAMPLE_S24_32LE || spec.format == PA_SAMPLE_S24_32BE;
  if (!padded) f.formatFlags |= kAudioFormatFlagIsPacked;
  f.channelsPerFrame = spec.channels;
  f.bitsPerChannel = bits;
  f.bytesPerFrame = static_cast<uint32_t>(pa_frame_size(&spec));
  f.bytesPerPacket = f.bytesPerFrame;
  f.framesPerPacket = 1;
  return f;
}

}  // namespace ac::platform::linux_backend
