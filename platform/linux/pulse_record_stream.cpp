#include "platform/linux/pulse_record_stream.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include <pulse/timeval.h>

#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_status.h"
#include "support/realtime.h"

namespace ac::platform::linux_backend {

namespace {
int64_t nowNs(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return int64_t(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}
int64_t monotonicNs() { return nowNs(CLOCK_MONOTONIC); }
}  // namespace

PulseRecordStream::PulseRecordStream(PulseConnection& connection, ChunkHandler onChunk, FailureHandler onFailure)
    : connection_(connection), onChunk_(std::move(onChunk)), onFailure_(std::move(onFailure)) {}

PulseRecordStream::~PulseRecordStream() { stop(); }

OSStatus PulseRecordStream::start(const std::string& source, const pa_sample_spec& spec, uint32_t fragmentMs,
                                  const char* streamName) {
  if (connection_.onLoopThread()) return kIllegalOperationErr;
  PulseConnection::Lock lock(connection_);
  const Arguments args{source, spec, fragmentMs};
  startedNs_ = monotonicNs();
  if (uncorkPrepared(args)) return kNoErr;
  running_ = false;
  release();
  if (OSStatus st = open(args, streamName, false)) return st;
  // Chunks that arrived while waiting stay queued; the next read drains them.
  running_ = true;
  return kNoErr;
}

OSStatus PulseRecordStream::prepare(const std::string& source, const pa_sample_spec& spec, uint32_t fragmentMs,
                                    const char* streamName) {
  if (connection_.onLoopThread()) return kIllegalOperationErr;
  PulseConnection::Lock lock(connection_);
  running_ = false;
  release();
  const Arguments args{source, spec, fragmentMs};
  if (OSStatus st = open(args, streamName, true)) return st;
  prepared_ = args;
  return kNoErr;
}

bool PulseRecordStream::uncorkPrepared(const Arguments& args) {
  const std::optional<Arguments> prepared = std::exchange(prepared_, std::nullopt);
  if (!prepared || !stream_ || prepared->source != args.source || !pa_sample_spec_equal(&prepared->spec, &args.spec) ||
      prepared->fragmentMs != args.fragmentMs)
    return false;
  // A server that went away took the stream along (its context died with it).
  if (pa_stream_get_state(stream_) != PA_STREAM_READY) return false;
  // Corked, nothing should have come; whatever did was captured before now.
  const void* data = nullptr;
  size_t bytes = 0;
  while (pa_stream_peek(stream_, &data, &bytes) == 0 && bytes > 0) pa_stream_drop(stream_);
  pa_operation* op = pa_stream_cork(stream_, 0, nullptr, nullptr);
  if (!op) return false;
  pa_operation_unref(op);
  clock_ = StreamClock(spec_.rate);
  running_ = true;
  return true;
}

OSStatus PulseRecordStream::open(const Arguments& args, const char* streamName, bool corked) {
  if (OSStatus st = connection_.ensureReady()) return st;
  const pa_sample_spec& spec = args.spec;
  pa_channel_map map;
  pa_channel_map_init_auto(&map, spec.channels, PA_CHANNEL_MAP_DEFAULT);
  stream_ = pa_stream_new(connection_.context(), streamName, &spec, &map);
  if (!stream_) return pulseStatus(connection_.lastError());
  spec_ = spec;
  frameBytes_ = pa_frame_size(&spec);
  clock_ = StreamClock(spec.rate);
  pa_stream_set_state_callback(stream_, onState, this);
  pa_stream_set_read_callback(stream_, onRead, this);
  pa_stream_set_overflow_callback(stream_, onOverflow, this);
  pa_stream_set_latency_update_callback(stream_, onLatencyUpdate, this);

  pa_buffer_attr attr;
  attr.maxlength = static_cast<uint32_t>(-1);
  attr.tlength = attr.prebuf = attr.minreq = static_cast<uint32_t>(-1);
  attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(pa_usec_t(args.fragmentMs) * PA_USEC_PER_MSEC, &spec));
  auto flags =
      static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_DONT_MOVE |
                                     (corked ? PA_STREAM_START_CORKED : 0));
  if (pa_stream_connect_record(stream_, args.source.c_str(), &attr, flags) < 0) {
    OSStatus st = pulseStatus(connection_.lastError());
    release();
    return st;
  }
  pa_stream* made = stream_;
  OSStatus st = connection_.waitFor(
      [this, made] {
        // Another thread may have stopped it meanwhile.
        if (stream_ != made) return true;
        pa_stream_state_t s = pa_stream_get_state(stream_);
        return s != PA_STREAM_CREATING && s != PA_STREAM_UNCONNECTED;
      },
      kStartTimeoutSeconds);
  if (stream_ != made) return PA_ERR_KILLED;
  if (st == kNoErr && pa_stream_get_state(stream_) != PA_STREAM_READY) st = pulseStatus(connection_.lastError());
  if (st != kNoErr) release();
  return st;
}

OSStatus PulseRecordStream::stop() {
  PulseConnection::Lock lock(connection_);
  running_ = false;
  release();
  return kNoErr;
}

void PulseRecordStream::release() {
  prepared_.reset();
  if (!stream_) return;
  pa_stream_set_read_callback(stream_, nullptr, nullptr);
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_set_overflow_callback(stream_, nullptr, nullptr);
  pa_stream_set_latency_update_callback(stream_, nullptr, nullptr);
  pa_stream_state_t s = pa_stream_get_state(stream_);
  if (s == PA_STREAM_READY || s == PA_STREAM_CREATING) pa_stream_disconnect(stream_);
  pa_stream_unref(stream_);
  stream_ = nullptr;
}

void PulseRecordStream::onRead(pa_stream*, size_t, void* userdata) { static_cast<PulseRecordStream*>(userdata)->drain(); }

void PulseRecordStream::onLatencyUpdate(pa_stream*, void* userdata) {
  static_cast<PulseRecordStream*>(userdata)->drain();
}

void PulseRecordStream::onOverflow(pa_stream*, void* userdata) {
  // The server dropped data we did not read in time: the count is off.
  static_cast<PulseRecordStream*>(userdata)->clock_.markDiscontinuity(monotonicNs());
}

void PulseRecordStream::onState(pa_stream* s, void* userdata) {
  auto* self = static_cast<PulseRecordStream*>(userdata);
  self->connection_.signal();
  pa_stream_state_t state = pa_stream_get_state(s);
  if ((state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) && self->running_.exchange(false)) {
    int error = pa_context_errno(pa_stream_get_context(s));
    if (self->onFailure_) self->onFailure_(error == PA_OK ? PA_ERR_KILLED : error);
  }
}

std::optional<TimingReport> PulseRecordStream::timingReport(int64_t nowMonotonicNs) const {
  // From the server's last timing report, not libpulse's interpolated
  // latency: its smoother starts from the monitor's pre-negotiation latency
  // and takes a second to let go of it. At the report's time the server had
  // written write_index bytes, and the source still held source_usec of
  // captured audio, so byte R was captured at
  //   reportTime + (R - write_index) / rate - source_usec.
  // The sink's own buffer (sink_usec, for monitors) is left out: the tap is
  // stamped when the mix was rendered, not when it reaches the speaker.
  const pa_timing_info* t = pa_stream_get_timing_info(stream_);
  if (!t || t->read_index_corrupt || t->write_index_corrupt || spec_.rate == 0 || frameBytes_ == 0) return std::nullopt;
  const int64_t takenWallNs = int64_t(t->timestamp.tv_sec) * 1'000'000'000 + int64_t(t->timestamp.tv_usec) * 1000;
  const int64_t takenNs = takenWallNs - (nowNs(CLOCK_REALTIME) - nowMonotonicNs);
  const int64_t framesAfterReport = (t->read_index - t->write_index) / int64_t(frameBytes_);
  return TimingReport{takenNs, takenNs + framesAfterReport * 1'000'000'000 / int64_t(spec_.rate) -
                                   int64_t(t->source_usec) * 1000};
}

void PulseRecordStream::requestReportIfWanted() {
  if (!clock_.takeReportRequest()) return;
  // Its answer calls onLatencyUpdate, which drains what was held back.
  if (pa_operation* op = pa_stream_update_timing_info(stream_, nullptr, nullptr)) pa_operation_unref(op);
}

void PulseRecordStream::drain() {
  if (!running_ || pa_stream_readable_size(stream_) == 0) return;
  int64_t now = monotonicNs();
  clock_.noteData(now);
  requestReportIfWanted();
  if (clock_.shouldWait(timingReport(now), now)) return;
  while (running_) {
    const void* data = nullptr;
    size_t bytes = 0;
    if (pa_stream_peek(stream_, &data, &bytes) < 0 || bytes == 0) break;
    now = monotonicNs();
    if (!data) {  // a hole: the server has nothing for this stretch
      clock_.markDiscontinuity(now);
      pa_stream_drop(stream_);
      requestReportIfWanted();  // what follows waits for it
      return;
    }
    const uint64_t frames = frameBytes_ ? bytes / frameBytes_ : 0;
    const uint64_t position = clock_.framePosition();
    const int64_t stamp = clock_.stampChunk(now, timingReport(now), frames);
    // Frames captured before start() are not the caller's: a server that
    // works in whole cycles (PipeWire) hands a stream that starts mid-cycle
    // the cycle's earlier part too.
    const uint64_t early =
        stamp >= startedNs_ ? 0
                            : std::min<uint64_t>(frames, uint64_t((startedNs_ - stamp) * int64_t(spec_.rate) / 1'000'000'000 + 1));
    if (early < frames) {
      RealTimeScope realTime;
      onChunk_(CapturedChunk{static_cast<const uint8_t*>(data) + early * frameBytes_, bytes - early * frameBytes_,
                             frames - early, stamp + int64_t(early) * 1'000'000'000 / int64_t(spec_.rate),
                             position + early});
    }
    pa_stream_drop(stream_);
  }
}

}  // namespace ac::platform::linux_backend
