#include "platform/linux/dbus_session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <thread>

#include "support/dispatch.h"
#include "support/log.h"
#include "support/text.h"

namespace ac::platform::linux_backend {
namespace {

// The session bus address the way libdbus finds it, minus X11 autolaunch:
// a notification agent must never start a bus daemon of its own.
std::string sessionBusAddress() {
  if (const char* a = std::getenv("DBUS_SESSION_BUS_ADDRESS"); a && *a) return a;
  if (const char* run = std::getenv("XDG_RUNTIME_DIR"); run && *run) {
    std::string path = std::string(run) + "/bus";
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) return "unix:path=" + path;
  }
  return "";
}

DBusConnection* connectSessionBus() {
  std::string address = sessionBusAddress();
  if (address.empty()) return nullptr;
  DBusError err;
  dbus_error_init(&err);
  DBusConnection* c = dbus_connection_open_private(address.c_str(), &err);
  if (!c) {
    dbus_error_free(&err);
    return nullptr;
  }
  dbus_connection_set_exit_on_disconnect(c, FALSE);
  if (!dbus_bus_register(c, &err)) {
    dbus_error_free(&err);
    dbus_connection_close(c);
    dbus_connection_unref(c);
    return nullptr;
  }
  return c;
}

void onPendingReply(DBusPendingCall* pending, void* data) {
  auto* handler = static_cast<DBusSession::ReplyHandler*>(data);
  DBusMessage* reply = dbus_pending_call_steal_reply(pending);
  if (!reply) return;
  if (dbus_message_get_type(reply) == DBUS_MESSAGE_TYPE_ERROR) {
    std::string name = dbus_message_get_error_name(reply) ? dbus_message_get_error_name(reply) : "";
    std::string text;
    DBusMessageIter it;
    if (dbus_message_iter_init(reply, &it)) dbus_args::readString(&it, text);
    (*handler)(nullptr, name, text);
  } else {
    (*handler)(reply, "", "");
  }
  dbus_message_unref(reply);
}

void freeHandler(void* data) { delete static_cast<DBusSession::ReplyHandler*>(data); }

}  // namespace

void sayNoSessionBusOnce() {
  static std::once_flag once;
  std::call_once(once, [] { writeStderr(std::string("notify: ") + kNoSessionBusText + "\n"); });
}

DBusSession* DBusSession::shared() {
  static DBusSession* session = []() -> DBusSession* {
    dbus_threads_init_default();
    DBusConnection* c = connectSessionBus();
    return c ? new DBusSession(c) : nullptr;
  }();
  return session;
}

DBusSession::DBusSession(DBusConnection* connection) : connection_(connection) {
  if (const char* name = dbus_bus_get_unique_name(connection_)) uniqueName_ = name;
  if (::pipe2(wakePipe_, O_CLOEXEC | O_NONBLOCK) != 0) wakePipe_[0] = wakePipe_[1] = -1;
  dbus_connection_add_filter(connection_, &DBusSession::filter, this, nullptr);
  std::thread([this] { run(); }).detach();
}

void DBusSession::post(std::function<void(DBusConnection*)> work) {
  {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
  }
  wake();
}

void DBusSession::wake() {
  char b = 1;
  if (wakePipe_[1] >= 0) (void)!::write(wakePipe_[1], &b, 1);
}

void DBusSession::run() {
  setCurrentThreadName("ac.dbus");
  int busFD = -1;
  dbus_connection_get_unix_fd(connection_, &busFD);
  for (;;) {
    std::deque<std::function<void(DBusConnection*)>> work;
    {
      std::lock_guard lock(mutex_);
      work.swap(work_);
    }
    for (auto& w : work) w(connection_);
    while (dbus_connection_dispatch(connection_) == DBUS_DISPATCH_DATA_REMAINS) {
    }
    bool connected = dbus_connection_get_is_connected(connection_);
    pollfd fds[2] = {{wakePipe_[0], POLLIN, 0}, {busFD, POLLIN, 0}};
    if (connected && dbus_connection_has_messages_to_send(connection_)) fds[1].events |= POLLOUT;
    int n = ::poll(fds, connected && busFD >= 0 ? 2 : 1, -1);
    if (n < 0 && errno != EINTR) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (fds[0].revents & POLLIN) {
      char buf[64];
      while (::read(wakePipe_[0], buf, sizeof buf) > 0) {
      }
    }
    if (connected && fds[1].revents) dbus_connection_read_write(connection_, 0);
  }
}

void DBusSession::call(DBusMessage* message, ReplyHandler onReply) {
  post([message, onReply = std::move(onReply)](DBusConnection* c) mutable {
    DBusPendingCall* pending = nullptr;
    bool sent = dbus_connection_send_with_reply(c, message, &pending, DBUS_TIMEOUT_USE_DEFAULT);
    dbus_message_unref(message);
    // Not sent, or the connection is gone: the call is never answered.
    if (!sent || !pending) return;
    dbus_pending_call_set_notify(pending, onPendingReply, new ReplyHandler(std::move(onReply)), freeHandler);
    dbus_pending_call_unref(pending);
  });
}

bool DBusSession::sendAndFlush(DBusMessage* message, double timeoutSeconds) {
  auto done = std::make_shared<Semaphore>();
  post([message, done](DBusConnection* c) {
    bool sent = dbus_connection_send(c, message, nullptr);
    dbus_message_unref(message);
    if (sent && dbus_connection_get_is_connected(c)) {
      dbus_connection_flush(c);
      done->signal();
    }
  });
  return done->wait(timeoutSeconds);
}

void DBusSession::addSignalHandler(const std::string& matchRule, const std::string& interface,
                                   SignalHandler handler) {
  post([this, matchRule, interface, handler = std::move(handler)](DBusConnection* c) mutable {
    // No error object: the match is sent without waiting for its reply.
    dbus_bus_add_match(c, matchRule.c_str(), nullptr);
    subscriptions_.push_back({interface, std::move(handler)});
  });
}

DBusHandlerResult DBusSession::filter(DBusConnection*, DBusMessage* message, void* self) {
  if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_SIGNAL) return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  const char* iface = dbus_message_get_interface(message);
  if (!iface) return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  for (auto& s : static_cast<DBusSession*>(self)->subscriptions_) {
    if (s.interface == iface) s.handler(message);
  }
  return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
}

namespace dbus_args {

bool readString(DBusMessageIter* it, std::string& out) {
  int type = dbus_message_iter_get_arg_type(it);
  if (type != DBUS_TYPE_STRING && type != DBUS_TYPE_OBJECT_PATH) return false;
  const char* s = nullptr;
  dbus_message_iter_get_basic(it, &s);
  out = s ? s : "";
  return true;
}

bool readUint32(DBusMessageIter* it, uint32_t& out) {
  if (dbus_message_iter_get_arg_type(it) != DBUS_TYPE_UINT32) return false;
  dbus_uint32_t v = 0;
  dbus_message_iter_get_basic(it, &v);
  out = v;
  return true;
}

void appendString(DBusMessageIter* it, const std::string& s) {
  // Titles come straight from the command line.
  std::string valid = repairedUTF8(s);
  const char* p = valid.c_str();
  dbus_message_iter_append_basic(it, DBUS_TYPE_STRING, &p);
}

}  // namespace dbus_args

}  // namespace ac::platform::linux_backend
