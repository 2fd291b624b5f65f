#include "platform/linux/dbus_notification_center.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <memory>
#include <mutex>

#include "platform/linux/backends.h"
#include "platform/linux/dbus_application.h"
#include "platform/linux/dbus_notification_registry.h"
#include "platform/linux/dbus_session.h"
#include "support/dispatch.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

std::string escapeBodyMarkup(const std::string& body) {
  std::string out;
  out.reserve(body.size());
  for (char c : body) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string freedesktopSoundName(const std::string& soundName) {
  if (soundName.empty()) return "message-new-instant";
  if (soundName == "Basso") return "dialog-warning";
  // A freedesktop sound-theme name passes as it is; another
  // platform's name would find no sound, so it gets the default.
  return soundName.find('-') != std::string::npos ? soundName : "message-new-instant";
}

int32_t expireTimeoutMilliseconds(const NotificationContent& content, double now) {
  if (!content.resident) return -1;
  if (content.expiresAt <= 0) return 0;
  double ms = (content.expiresAt - now) * 1000.0;
  // Already past: a moment, so it does not stay for good.
  return ms < 1000 ? 1000 : ms > 2147483647.0 ? 0 : static_cast<int32_t>(ms);
}

namespace {

constexpr uint32_t kClosedByUser = 2;
constexpr double kRemovalPatienceSeconds = 2.0;

DBusMessage* notificationsCall(const char* member) {
  return dbus_message_new_method_call(kNotificationsService, kNotificationsPath, kNotificationsInterface, member);
}

DBusMessage* busCall(const char* member) {
  return dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                      member);
}

void appendHints(DBusMessageIter* args, const NotificationContent& content) {
  DBusMessageIter dict;
  dbus_message_iter_open_container(args, DBUS_TYPE_ARRAY, "{sv}", &dict);
  auto entry = [&](const char* key, int type, const char* signature, const void* value) {
    DBusMessageIter e, variant;
    dbus_message_iter_open_container(&dict, DBUS_TYPE_DICT_ENTRY, nullptr, &e);
    dbus_args::appendString(&e, key);
    dbus_message_iter_open_container(&e, DBUS_TYPE_VARIANT, signature, &variant);
    if (type == DBUS_TYPE_STRING)
      dbus_args::appendString(&variant, *static_cast<const std::string*>(value));
    else
      dbus_message_iter_append_basic(&variant, type, value);
    dbus_message_iter_close_container(&e, &variant);
    dbus_message_iter_close_container(&dict, &e);
  };
  std::string sound = freedesktopSoundName(content.soundName);
  std::string entryName = kDesktopEntryName;
  entry("sound-name", DBUS_TYPE_STRING, "s", &sound);
  entry("desktop-entry", DBUS_TYPE_STRING, "s", &entryName);
  dbus_bool_t yes = TRUE;
  if (content.resident) entry("resident", DBUS_TYPE_BOOLEAN, "b", &yes);
  dbus_message_iter_close_container(args, &dict);
}

DBusMessage* notifyMessage(const NotificationContent& content, const std::vector<NotificationAction>& actions,
                           bool bodyMarkup) {
  DBusMessage* m = notificationsCall("Notify");
  DBusMessageIter args;
  dbus_message_iter_init_append(m, &args);
  dbus_args::appendString(&args, kNotificationsAppName);
  dbus_uint32_t replaces = 0;
  dbus_message_iter_append_basic(&args, DBUS_TYPE_UINT32, &replaces);
  dbus_args::appendString(&args, kDesktopEntryName);  // the installed icon's name
  dbus_args::appendString(&args, content.title);
  dbus_args::appendString(&args, bodyMarkup ? escapeBodyMarkup(content.body) : content.body);
  DBusMessageIter list;
  dbus_message_iter_open_container(&args, DBUS_TYPE_ARRAY, "s", &list);
  if (!content.defaultActionTitle.empty()) {
    dbus_args::appendString(&list, kDefaultActionKey);
    dbus_args::appendString(&list, content.defaultActionTitle);
  }
  for (const auto& a : actions) {
    dbus_args::appendString(&list, a.identifier);
    dbus_args::appendString(&list, a.title);
  }
  dbus_message_iter_close_container(&args, &list);
  appendHints(&args, content);
  dbus_int32_t expire = expireTimeoutMilliseconds(content, wallSeconds());
  dbus_message_iter_append_basic(&args, DBUS_TYPE_INT32, &expire);
  return m;
}

// What failed, in the words a Linux user can act on.
Error unreachable(const std::string& errorName, const std::string& errorMessage) {
  if (errorName == "org.freedesktop.DBus.Error.ServiceUnknown" || errorName == "org.freedesktop.DBus.Error.NameHasNoOwner")
    return {errorName, -1, "no notification service on the session bus (nothing owns org.freedesktop.Notifications)"};
  return {errorName.empty() ? kNotificationsService : errorName, -1,
          errorMessage.empty() ? "the notification service sent no usable answer" : errorMessage};
}

Error noSessionBus() { return {"dbus", -1, kNoSessionBusText}; }

// Once per process: why the authorization calls answer "unknown" at once.
void sayOnce(const Error& why) {
  static std::once_flag once;
  std::call_once(once, [&] { writeStderr("notify: " + why.description + "\n"); });
}

class DBusNotificationCenter final : public NotificationCenter {
 public:
  DBusNotificationCenter() : session_(DBusSession::shared()), registry_(registryDirectory()) {
    if (!session_) return;
    session_->addSignalHandler(std::string("type='signal',interface='") + kNotificationsInterface + "'",
                               kNotificationsInterface, [this](DBusMessage* m) { onSignal(m); });
  }

  void setDelegate(NotificationDelegate* delegate) override {
    std::lock_guard lock(mutex_);
    delegate_ = delegate;
  }

  // The service asks nobody: reaching it is the permission. An error reply
  // (nothing owns the name and nothing can be started for it) is an answer
  // too, given at once instead of waiting out the caller's time-out.
  void getAuthorizationStatus(std::function<void(NotificationAuthorizationStatus)> completion) override {
    reachService([completion](std::optional<Error> error) {
      if (error && error->domain != "dbus") sayOnce(*error);
      completion(error ? kNotificationAuthorizationUnavailable : 2);
    });
  }

  void requestAuthorization(bool, bool, bool,
                            std::function<void(bool, std::optional<Error>)> completion) override {
    reachService([completion](std::optional<Error> error) { completion(!error, error); });
  }

  void add(const std::string& identifier, const NotificationContent& content,
           std::function<void(std::optional<Error>)> completion) override {
    if (!session_) return completion(noSessionBus());
    std::vector<NotificationAction> actions;
    bool customDismiss = false;
    if (!content.categoryIdentifier.empty()) {
      for (const auto& c : registry_.categories()) {
        if (c.identifier == content.categoryIdentifier) {
          actions = c.actions;
          customDismiss = c.customDismissAction;
        }
      }
    }
    withService([=, this](std::optional<Error> error, bool gtk) {
      if (error) return completion(*error);
      if (gtk) {
        postedToGtk_ = true;
        return session_->call(gtkAddNotification(kDesktopEntryName, identifier, content, actions),
                              [=, this](DBusMessage* reply, const std::string& errorName, const std::string& errorMessage) {
                                onAdded(reply, errorName, errorMessage, identifier, content, 0, false, completion);
                              });
      }
      postToNotifications(identifier, content, actions, customDismiss, completion);
    });
  }

  void postToNotifications(const std::string& identifier, const NotificationContent& original,
                           std::vector<NotificationAction> actions, bool customDismiss,
                           const std::function<void(std::optional<Error>)>& completion) {
    withCapabilities([=, this, content = original](const std::vector<std::string>& caps) mutable {
      auto has = [&](const char* cap) { return std::find(caps.begin(), caps.end(), cap) != caps.end(); };
      if (!has("actions") && (!actions.empty() || !content.defaultActionTitle.empty())) {
        static std::once_flag once;
        std::call_once(once, [] {
          writeStderr("notify: this notification service shows no actions — posting the text alone\n");
        });
        actions.clear();
        content.defaultActionTitle.clear();
      }
      session_->call(notifyMessage(content, actions, has("body-markup")),
                     [=, this](DBusMessage* reply, const std::string& errorName, const std::string& errorMessage) {
                       onNotifyReply(reply, errorName, errorMessage, identifier, content, customDismiss, completion);
                     });
    });
  }

  void getDelivered(std::function<void(std::vector<DeliveredNotification>)> completion) override {
    withServiceOwner([this, completion](const std::optional<std::string>& maybeOwner, bool gtk) {
      // No service: the centre did not answer (which is not "none shown").
      if (!maybeOwner) return;
      std::string owner = *maybeOwner;
      withClosedHistory(gtk, [this, owner, completion](const std::set<uint32_t>& closed) {
        dispatchGlobal([this, owner, closed, completion] {
          // Rows shown by an earlier instance of the service died with it;
          // rows the service lists as closed are gone too.
          auto gone = [&](const RegistryRow& r) { return r.server != owner || closed.count(r.serverID) > 0; };
          std::vector<DeliveredNotification> out;
          bool stale = false;
          for (auto& r : registry_.rows()) {
            if (gone(r)) {
              stale = true;
              continue;
            }
            out.push_back({r.requestIdentifier, r.content, r.at});
          }
          if (stale) registry_.removeIf(gone);
          completion(std::move(out));
        });
      });
    });
  }

  void removeDelivered(const std::vector<std::string>& identifiers) override {
    if (!session_ || identifiers.empty()) return;
    auto wanted = [&](const RegistryRow& r) {
      return std::find(identifiers.begin(), identifiers.end(), r.requestIdentifier) != identifiers.end();
    };
    std::vector<RegistryRow> rows;
    for (auto& r : registry_.rows())
      if (wanted(r)) rows.push_back(r);
    auto done = std::make_shared<Semaphore>();
    withServiceOwner([this, rows, done](const std::optional<std::string>& owner, bool gtk) {
      if (!owner) return done->signal();
      // An id from another instance of the service may name someone else's
      // banner now: only close what the current instance showed.
      for (const auto& r : rows) {
        if (r.server != *owner) continue;
        DBusMessage* m = gtk ? gtkRemoveNotification(kDesktopEntryName, r.requestIdentifier)
                             : notificationsCall("CloseNotification");
        dbus_uint32_t id = r.serverID;
        if (!gtk) dbus_message_append_args(m, DBUS_TYPE_UINT32, &id, DBUS_TYPE_INVALID);
        session_->call(m, [](DBusMessage*, const std::string&, const std::string&) {});
      }
      // Replies come back in order: a final round trip means every close
      // before it has been handled by the service.
      session_->call(notificationsCall("GetServerInformation"),
                     [done](DBusMessage*, const std::string&, const std::string&) { done->signal(); });
    });
    done->wait(kRemovalPatienceSeconds);
    if (!registry_.removeIf(wanted)) writeStderr("notify: notification registry busy — withdrawn rows stay listed\n");
  }

  void getCategories(std::function<void(std::vector<NotificationCategory>)> completion) override {
    completion(registry_.categories());
  }

  void setCategories(const std::vector<NotificationCategory>& categories) override {
    if (!registry_.setCategories(categories))
      writeStderr("notify: category file busy or unwritable — categories unchanged\n");
  }

  bool relaunchesProgramOnClick() const override { return false; }

  bool clicksArriveByActivation() const override { return postedToGtk_; }

  bool receiveActivations() override {
    auto gtk = std::make_shared<Semaphore>();
    auto uses = std::make_shared<std::atomic<bool>>(false);
    withService([gtk, uses](std::optional<Error> error, bool viaGtk) {
      *uses = !error && viaGtk;
      gtk->signal();
    });
    if (!gtk->wait(kRemovalPatienceSeconds) || !*uses) return false;
    return exportApplication(*session_, kDesktopEntryName, [this](const std::string& request, const std::string& action) {
      if (NotificationDelegate* delegate = currentDelegate()) delegate->didActivate(request, action);
    });
  }

 private:
  struct Posted {
    std::string requestIdentifier;
    std::string server;
    NotificationContent content;
    bool customDismiss = false;
    bool answered = false;
  };

  // Runs next with the service's capabilities, fetched once (session thread).
  void withCapabilities(std::function<void(const std::vector<std::string>&)> next) {
    session_->post([this, next = std::move(next)](DBusConnection*) mutable {
      if (capabilities_) return next(*capabilities_);
      session_->call(notificationsCall("GetCapabilities"),
                     [this, next](DBusMessage* reply, const std::string&, const std::string&) {
                       std::vector<std::string> caps;
                       DBusMessageIter it, list;
                       if (reply && dbus_message_iter_init(reply, &it) &&
                           dbus_message_iter_get_arg_type(&it) == DBUS_TYPE_ARRAY) {
                         dbus_message_iter_recurse(&it, &list);
                         std::string s;
                         do {
                           if (dbus_args::readString(&list, s)) caps.push_back(s);
                         } while (dbus_message_iter_next(&list));
                       }
                       capabilities_ = caps;
                       next(caps);
                     });
    });
  }

  // Runs next with the unique name that owns the service in use now, or
  // with nothing when no service is on the bus.
  void withServiceOwner(std::function<void(const std::optional<std::string>&, bool gtk)> next) {
    withService([this, next](std::optional<Error> error, bool gtk) {
      if (error) return next(std::nullopt, false);
      DBusMessage* m = busCall("GetNameOwner");
      const char* name = gtk ? kGtkNotificationsService : kNotificationsService;
      dbus_message_append_args(m, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
      session_->call(m, [next, gtk](DBusMessage* reply, const std::string&, const std::string&) {
        DBusMessageIter it;
        std::string owner;
        if (reply && dbus_message_iter_init(reply, &it) && dbus_args::readString(&it, owner)) return next(owner, gtk);
        next(std::nullopt, gtk);
      });
    });
  }

  // Runs next with nothing once a service answered, or with what is
  // missing; `gtk` when banners go to org.gtk.Notifications (asked once, and
  // preferred: there a click after the poster exited still reaches the
  // program). The bus itself answers for a name nobody owns and nothing can
  // start, so this never waits for a service that is not there.
  void withService(std::function<void(std::optional<Error>, bool gtk)> next) {
    if (!session_) {
      sayNoSessionBusOnce();
      return next(noSessionBus(), false);
    }
    session_->post([this, next = std::move(next)](DBusConnection*) mutable {
      if (gtk_ && *gtk_) return next(std::nullopt, true);
      auto fallBack = [this, next] {
        session_->call(notificationsCall("GetServerInformation"),
                       [next](DBusMessage* reply, const std::string& errorName, const std::string& errorMessage) {
                         if (reply) return next(std::nullopt, false);
                         next(unreachable(errorName, errorMessage), false);
                       });
      };
      if (gtk_) return fallBack();
      DBusMessage* m = busCall("NameHasOwner");
      const char* name = kGtkNotificationsService;
      dbus_message_append_args(m, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID);
      session_->call(m, [this, next, fallBack](DBusMessage* reply, const std::string&, const std::string&) {
        dbus_bool_t owned = FALSE;
        if (reply) dbus_message_get_args(reply, nullptr, DBUS_TYPE_BOOLEAN, &owned, DBUS_TYPE_INVALID);
        gtk_ = owned != FALSE;
        if (*gtk_) return next(std::nullopt, true);
        fallBack();
      });
    });
  }

  void reachService(std::function<void(std::optional<Error>)> done) {
    withService([done](std::optional<Error> error, bool) { done(std::move(error)); });
  }

  // Runs next with the ids of banners the service says it has closed. Only
  // some services can tell (dunst keeps a history of closed banners); for
  // the others the set is empty and nothing is assumed.
  void withClosedHistory(bool gtk, std::function<void(const std::set<uint32_t>&)> next) {
    if (gtk) return next({});
    DBusMessage* m = dbus_message_new_method_call(kNotificationsService, kNotificationsPath, "org.dunstproject.cmd0",
                                                  "NotificationListHistory");
    session_->call(m, [next](DBusMessage* reply, const std::string&, const std::string&) {
      std::set<uint32_t> closed;
      DBusMessageIter it;
      if (reply && dbus_message_iter_init(reply, &it)) closed = historyIDs(&it);
      next(closed);
    });
  }

  // The "id" of every entry of an aa{sv} history list.
  static std::set<uint32_t> historyIDs(DBusMessageIter* list) {
    std::set<uint32_t> ids;
    if (dbus_message_iter_get_arg_type(list) != DBUS_TYPE_ARRAY) return ids;
    DBusMessageIter entries;
    for (dbus_message_iter_recurse(list, &entries); dbus_message_iter_get_arg_type(&entries) == DBUS_TYPE_ARRAY;
         dbus_message_iter_next(&entries)) {
      DBusMessageIter fields;
      for (dbus_message_iter_recurse(&entries, &fields);
           dbus_message_iter_get_arg_type(&fields) == DBUS_TYPE_DICT_ENTRY; dbus_message_iter_next(&fields)) {
        DBusMessageIter entry, value;
        dbus_message_iter_recurse(&fields, &entry);
        std::string key;
        if (!dbus_args::readString(&entry, key) || key != "id" || !dbus_message_iter_next(&entry) ||
            dbus_message_iter_get_arg_type(&entry) != DBUS_TYPE_VARIANT)
          continue;
        dbus_message_iter_recurse(&entry, &value);
        int type = dbus_message_iter_get_arg_type(&value);
        if (type == DBUS_TYPE_INT32 || type == DBUS_TYPE_UINT32) {
          dbus_uint32_t id = 0;
          dbus_message_iter_get_basic(&value, &id);
          ids.insert(id);
        }
      }
    }
    return ids;
  }

  void onNotifyReply(DBusMessage* reply, const std::string& errorName, const std::string& errorMessage,
                     const std::string& identifier, const NotificationContent& content, bool customDismiss,
                     const std::function<void(std::optional<Error>)>& completion) {
    uint32_t serverID = 0;
    DBusMessageIter it;
    if (!reply || !dbus_message_iter_init(reply, &it) || !dbus_args::readUint32(&it, serverID)) {
      completion(unreachable(errorName, errorMessage));
      return;
    }
    onAdded(reply, identifier, content, serverID, customDismiss, completion);
  }

  // Lists a banner the service took (id 0 where the service numbers none).
  void onAdded(DBusMessage* reply, const std::string& errorName, const std::string& errorMessage,
               const std::string& identifier, const NotificationContent& content, uint32_t serverID,
               bool customDismiss, const std::function<void(std::optional<Error>)>& completion) {
    if (!reply) return completion(unreachable(errorName, errorMessage));
    onAdded(reply, identifier, content, serverID, customDismiss, completion);
  }

  void onAdded(DBusMessage* reply, const std::string& identifier, const NotificationContent& content,
               uint32_t serverID, bool customDismiss, const std::function<void(std::optional<Error>)>& completion) {
    std::string server = dbus_message_get_sender(reply) ? dbus_message_get_sender(reply) : "";
    if (serverID != 0) posted_[serverID] = Posted{identifier, server, content, customDismiss, false};
    RegistryRow row{identifier, server, serverID, content, wallSeconds()};
    // The row is on disk before the add completes, so a delivered query
    // right after the add already lists it.
    registryWrites_.async([this, row, completion] {
      if (!registry_.add(row)) writeStderr("notify: notification registry busy — this banner is not listed\n");
      completion(std::nullopt);
    });
  }

  void onSignal(DBusMessage* m) {
    const char* member = dbus_message_get_member(m);
    std::string sender = dbus_message_get_sender(m) ? dbus_message_get_sender(m) : "";
    DBusMessageIter it;
    uint32_t id = 0;
    if (!member || !dbus_message_iter_init(m, &it) || !dbus_args::readUint32(&it, id)) return;
    dbus_message_iter_next(&it);
    auto posted = posted_.find(id);
    if (posted != posted_.end() && posted->second.server != sender) posted = posted_.end();

    if (std::string(member) == "ActionInvoked") {
      std::string key;
      if (!dbus_args::readString(&it, key) || posted == posted_.end() || posted->second.answered) return;
      posted->second.answered = true;
      deliver({posted->second.requestIdentifier, key == kDefaultActionKey ? kDefaultActionIdentifier : key,
               posted->second.content});
      // A resident banner stays after a click unless taken back; a second
      // click on it could only reach a process that has gone.
      if (posted->second.content.resident) {
        DBusMessage* close = notificationsCall("CloseNotification");
        dbus_uint32_t closeID = id;
        dbus_message_append_args(close, DBUS_TYPE_UINT32, &closeID, DBUS_TYPE_INVALID);
        session_->call(close, [](DBusMessage*, const std::string&, const std::string&) {});
      }
    } else if (std::string(member) == "NotificationClosed") {
      uint32_t reason = 0;
      dbus_args::readUint32(&it, reason);
      if (posted != posted_.end()) {
        if (reason == kClosedByUser && posted->second.customDismiss && !posted->second.answered)
          deliver({posted->second.requestIdentifier, kDismissActionIdentifier, posted->second.content});
        std::string requestIdentifier = posted->second.requestIdentifier;
        posted_.erase(posted);
        if (NotificationDelegate* delegate = currentDelegate()) delegate->didClose(requestIdentifier);
      }
      // Any process of ours that sees a banner close keeps the registry
      // true, whoever posted it. Queued behind the add of the same banner,
      // so a banner closed at once is not listed again after its close.
      registryWrites_.async([this, sender, id] {
        registry_.removeIf([&](const RegistryRow& r) { return r.server == sender && r.serverID == id; });
      });
    }
  }

  NotificationDelegate* currentDelegate() {
    std::lock_guard lock(mutex_);
    return delegate_;
  }

  void deliver(const NotificationResponse& response) {
    if (NotificationDelegate* delegate = currentDelegate()) delegate->didReceive(response, [] {});
  }

  DBusSession* session_;
  NotificationRegistry registry_;
  // Registry changes in the order the bus reported them (an add's reply
  // always precedes that banner's close).
  SerialQueue registryWrites_{"ac.dbus-registry"};
  std::mutex mutex_;
  NotificationDelegate* delegate_ = nullptr;
  // Session thread only.
  std::map<uint32_t, Posted> posted_;
  std::optional<std::vector<std::string>> capabilities_;
  std::optional<bool> gtk_;
  std::atomic<bool> postedToGtk_{false};
};

}  // namespace

std::unique_ptr<NotificationCenter> makeDBusNotificationCenter() {
  return std::make_unique<DBusNotificationCenter>();
}

}  // namespace ac::platform::linux_backend
