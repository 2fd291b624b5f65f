#include "platform/linux/pulse_watch.h"

#include <vector>

#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_reconnect.h"

namespace ac::platform::linux_backend {

namespace {
std::mutex watchesMutex;
std::map<PulseConnection*, std::weak_ptr<PulseWatch>> watches;
}  // namespace

std::shared_ptr<PulseWatch> PulseWatch::of(const std::shared_ptr<PulseConnection>& connection) {
  std::lock_guard<std::mutex> guard(watchesMutex);
  std::erase_if(watches, [](const auto& entry) { return entry.second.expired(); });
  auto w = watches[connection.get()].lock();
  if (!w) {
    w = std::make_shared<PulseWatch>(connection);
    watches[connection.get()] = w;
    std::weak_ptr<PulseWatch> weak = w;
    w->connection_->setEventHandler([weak] {
      if (auto watch = weak.lock()) watch->changed();
    });
  }
  return w;
}

PulseWatch::PulseWatch(std::shared_ptr<PulseConnection> connection)
    : connection_(std::move(connection)), queue_("audio-capture.pulse-watch") {}

PulseWatch::~PulseWatch() {
  // A refresh still queued must run while the members it uses exist.
  queue_.sync([] {});
}

OSStatus PulseWatch::read(PulseConnection& connection, Snapshot& out) {
  std::shared_ptr<PulseWatch> watch;
  {
    std::lock_guard<std::mutex> guard(watchesMutex);
    auto it = watches.find(&connection);
    if (it != watches.end()) watch = it->second.lock();
  }
  // Without subscribers nothing keeps the snapshot up to date.
  if (watch && watch->listened_) {
    std::lock_guard<std::mutex> guard(watch->currentMutex_);
    if (watch->current_ && watch->readAt_ == watch->events_.load()) {
      out = *watch->current_;
      return kNoErr;
    }
  }
  return readSnapshot(connection, out);
}

void PulseWatch::changed() {
  // Counted before the re-read is queued, so a read that might have missed
  // this event never counts as current.
  events_.fetch_add(1);
  if (pending_.exchange(true)) return;
  // The destructor drains the queue, so `this` outlives the block.
  queue_.async([this] { refresh(); });
}

OSStatus PulseWatch::refresh() {
  const uint64_t seen = events_.load();
  pending_ = false;
  Snapshot now;
  // On failure the last view stays until the server answers again; while
  // anyone listens, the watch keeps asking, and the first answer after an
  // outage hands subscribers whatever changed meanwhile.
  if (OSStatus st = readSnapshot(*connection_, now)) {
    std::lock_guard<std::recursive_mutex> guard(mutex_);
    if (!subscribers_.empty())
      dispatchGlobalAfter(PulseReconnect::kRetrySeconds, [weak = weak_from_this()] {
        if (auto watch = weak.lock()) watch->changed();
      });
    return st;
  }
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  Snapshot before = std::move(last_);
  last_ = now;
  {
    std::lock_guard<std::mutex> current(currentMutex_);
    current_ = std::make_shared<const Snapshot>(now);
    readAt_ = seen;
  }
  bool notify = haveBaseline_;
  haveBaseline_ = true;
  if (!notify) return kNoErr;
  // Looked up one by one, so a subscriber removed by an earlier one is skipped.
  std::vector<uint64_t> tokens;
  for (const auto& entry : subscribers_) tokens.push_back(entry.first);
  for (uint64_t t : tokens) {
    auto it = subscribers_.find(t);
    if (it != subscribers_.end()) it->second(before, now);
  }
  return kNoErr;
}

OSStatus PulseWatch::subscribe(Subscriber subscriber, uint64_t& token) {
  OSStatus st = kNoErr;
  // Read now rather than trust an old baseline: the caller compares against
  // what the server has at the moment it subscribed.
  queue_.sync([&] { st = refresh(); });
  if (st != kNoErr) return st;
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  token = nextToken_++;
  subscribers_.emplace(token, std::move(subscriber));
  listened_ = true;
  return kNoErr;
}

void PulseWatch::unsubscribe(uint64_t token) {
  std::lock_guard<std::recursive_mutex> guard(mutex_);
  subscribers_.erase(token);
  listened_ = !subscribers_.empty();
}

}  // namespace ac::platform::linux_backend
