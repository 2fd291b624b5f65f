// This process's private connection to the session bus and the one thread
// that owns it.
//
// Contracts:
// - Every use of the DBusConnection happens on the session thread
//   ("ac.dbus"): post() queues work there; replies and signal handlers run
//   there and must not block for long (hand slow work to dispatchGlobal).
// - shared() connects once, on first use; nullptr when no session bus can be
//   reached (no address, daemon gone). A connection that drops later simply
//   stops answering: calls made after that never complete.
// - The connection never ends the process on disconnect.
// - The session is never destroyed: a notify process exits with it open.
#pragma once

#include <dbus/dbus.h>

#include <functional>
#include <memory>
#include <mutex>
#include <deque>
#include <string>
#include <vector>

namespace ac::platform::linux_backend {

// What a notify path says when shared() has no connection.
inline constexpr const char* kNoSessionBusText =
    "no session bus (DBUS_SESSION_BUS_ADDRESS is unset and $XDG_RUNTIME_DIR/bus is missing)";
// Writes "notify: " + kNoSessionBusText once per process.
void sayNoSessionBusOnce();

class DBusSession {
 public:
  // Called with the reply, or with nullptr and the error name and message.
  using ReplyHandler = std::function<void(DBusMessage* reply, const std::string& errorName,
                                          const std::string& errorMessage)>;
  using SignalHandler = std::function<void(DBusMessage* signal)>;

  static DBusSession* shared();

  // Runs work on the session thread.
  void post(std::function<void(DBusConnection*)> work);
  // Sends a method call (ownership taken) and calls onReply on the session
  // thread; a call the peer never answers never calls it.
  void call(DBusMessage* message, ReplyHandler onReply);
  // Sends a message that expects no reply (ownership taken) and waits at
  // most timeoutSeconds for it to be written to the bus.
  bool sendAndFlush(DBusMessage* message, double timeoutSeconds);
  // Subscribes to signals matching the rule; handler runs for every signal
  // whose interface equals `interface`.
  void addSignalHandler(const std::string& matchRule, const std::string& interface, SignalHandler handler);

  // This connection's unique name on the bus (":1.42").
  std::string uniqueName() const { return uniqueName_; }

 private:
  explicit DBusSession(DBusConnection* connection);
  void run();
  void wake();
  static DBusHandlerResult filter(DBusConnection*, DBusMessage* message, void* self);

  DBusConnection* connection_;
  std::string uniqueName_;
  int wakePipe_[2] = {-1, -1};
  std::mutex mutex_;
  std::deque<std::function<void(DBusConnection*)>> work_;
  struct Subscription {
    std::string interface;
    SignalHandler handler;
  };
  std::vector<Subscription> subscriptions_;  // session thread only
};

// Builders and readers for the few argument shapes the backends use.
namespace dbus_args {
// The first argument as a string or a uint32; nothing when it is not that type.
bool readString(DBusMessageIter* it, std::string& out);
bool readUint32(DBusMessageIter* it, uint32_t& out);
// Invalid UTF-8 is repaired (U+FFFD) first: libdbus refuses it fatally.
void appendString(DBusMessageIter* it, const std::string& s);
}  // namespace dbus_args

}  // namespace ac::platform::linux_backend
