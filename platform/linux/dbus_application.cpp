#include "platform/linux/dbus_application.h"

#include <memory>

#include "support/dispatch.h"

namespace ac::platform::linux_backend {
namespace {

constexpr const char* kApplicationInterface = "org.freedesktop.Application";
constexpr const char* kClickAction = "click";
constexpr double kNamePatienceSeconds = 2.0;

void appendStringPair(DBusMessageIter* it, const std::string& a, const std::string& b) {
  DBusMessageIter variant, list;
  dbus_message_iter_open_container(it, DBUS_TYPE_VARIANT, "as", &variant);
  dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "s", &list);
  dbus_args::appendString(&list, a);
  dbus_args::appendString(&list, b);
  dbus_message_iter_close_container(&variant, &list);
  dbus_message_iter_close_container(it, &variant);
}

// One {sv} entry whose value is written by value().
template <class F>
void appendEntry(DBusMessageIter* dict, const char* key, F value) {
  DBusMessageIter entry;
  dbus_message_iter_open_container(dict, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
  dbus_args::appendString(&entry, key);
  value(&entry);
  dbus_message_iter_close_container(dict, &entry);
}

void appendStringVariant(DBusMessageIter* it, const std::string& s) {
  DBusMessageIter variant;
  dbus_message_iter_open_container(it, DBUS_TYPE_VARIANT, "s", &variant);
  dbus_args::appendString(&variant, s);
  dbus_message_iter_close_container(it, &variant);
}

// The [request, action] target of ActivateAction's parameter list (av).
bool readClickTarget(DBusMessageIter* params, std::string& request, std::string& action) {
  if (dbus_message_iter_get_arg_type(params) != DBUS_TYPE_ARRAY) return false;
  DBusMessageIter variants, variant, list;
  dbus_message_iter_recurse(params, &variants);
  if (dbus_message_iter_get_arg_type(&variants) != DBUS_TYPE_VARIANT) return false;
  dbus_message_iter_recurse(&variants, &variant);
  if (dbus_message_iter_get_arg_type(&variant) != DBUS_TYPE_ARRAY) return false;
  dbus_message_iter_recurse(&variant, &list);
  if (!dbus_args::readString(&list, request) || !dbus_message_iter_next(&list)) return false;
  return dbus_args::readString(&list, action) && !dbus_message_iter_next(&list) && !request.empty();
}

using ClickHandler = std::function<void(const std::string&, const std::string&)>;

DBusHandlerResult onApplicationMessage(DBusConnection* connection, DBusMessage* m, void* data) {
  if (dbus_message_get_type(m) != DBUS_MESSAGE_TYPE_METHOD_CALL ||
      !dbus_message_has_interface(m, kApplicationInterface))
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  std::string name, request, action;
  DBusMessageIter it;
  if (dbus_message_has_member(m, "ActivateAction") && dbus_message_iter_init(m, &it) &&
      dbus_args::readString(&it, name) && name == kClickAction && dbus_message_iter_next(&it) &&
      readClickTarget(&it, request, action))
    (*static_cast<ClickHandler*>(data))(request, action);
  DBusMessage* reply = dbus_message_new_method_return(m);
  dbus_connection_send(connection, reply, nullptr);
  dbus_message_unref(reply);
  return DBUS_HANDLER_RESULT_HANDLED;
}

}  // namespace

std::string applicationObjectPath(std::string_view applicationID) {
  std::string path = "/";
  for (char c : applicationID) path += c == '.' ? '/' : c == '-' ? '_' : c;
  return path;
}

DBusMessage* gtkAddNotification(const std::string& applicationID, const std::string& identifier,
                                const NotificationContent& content, const std::vector<NotificationAction>& actions) {
  DBusMessage* m = dbus_message_new_method_call(kGtkNotificationsService, kGtkNotificationsPath,
                                                kGtkNotificationsService, "AddNotification");
  DBusMessageIter args, dict;
  dbus_message_iter_init_append(m, &args);
  dbus_args::appendString(&args, applicationID);
  dbus_args::appendString(&args, identifier);
  dbus_message_iter_open_container(&args, DBUS_TYPE_ARRAY, "{sv}", &dict);
  appendEntry(&dict, "title", [&](DBusMessageIter* e) { appendStringVariant(e, content.title); });
  appendEntry(&dict, "body", [&](DBusMessageIter* e) { appendStringVariant(e, content.body); });
  const std::string click = std::string("app.") + kClickAction;
  if (!content.defaultActionTitle.empty()) {
    appendEntry(&dict, "default-action", [&](DBusMessageIter* e) { appendStringVariant(e, click); });
    appendEntry(&dict, "default-action-target",
                [&](DBusMessageIter* e) { appendStringPair(e, identifier, kDefaultActionIdentifier); });
  }
  if (!actions.empty()) {
    appendEntry(&dict, "buttons", [&](DBusMessageIter* e) {
      DBusMessageIter variant, buttons;
      dbus_message_iter_open_container(e, DBUS_TYPE_VARIANT, "aa{sv}", &variant);
      dbus_message_iter_open_container(&variant, DBUS_TYPE_ARRAY, "a{sv}", &buttons);
      for (const auto& a : actions) {
        DBusMessageIter button;
        dbus_message_iter_open_container(&buttons, DBUS_TYPE_ARRAY, "{sv}", &button);
        appendEntry(&button, "label", [&](DBusMessageIter* b) { appendStringVariant(b, a.title); });
        appendEntry(&button, "action", [&](DBusMessageIter* b) { appendStringVariant(b, click); });
        appendEntry(&button, "target", [&](DBusMessageIter* b) { appendStringPair(b, identifier, a.identifier); });
        dbus_message_iter_close_container(&buttons, &button);
      }
      dbus_message_iter_close_container(&variant, &buttons);
      dbus_message_iter_close_container(e, &variant);
    });
  }
  dbus_message_iter_close_container(&args, &dict);
  return m;
}

DBusMessage* gtkRemoveNotification(const std::string& applicationID, const std::string& identifier) {
  DBusMessage* m = dbus_message_new_method_call(kGtkNotificationsService, kGtkNotificationsPath,
                                                kGtkNotificationsService, "RemoveNotification");
  DBusMessageIter args;
  dbus_message_iter_init_append(m, &args);
  dbus_args::appendString(&args, applicationID);
  dbus_args::appendString(&args, identifier);
  return m;
}

bool exportApplication(DBusSession& session, const std::string& applicationID, ClickHandler onClick) {
  auto taken = std::make_shared<Semaphore>();
  auto owned = std::make_shared<bool>(false);
  std::string path = applicationObjectPath(applicationID);
  session.post([=, onClick = std::move(onClick)](DBusConnection* c) {
    // Registered before the name is taken, so a call queued for the name
    // while the bus started us finds the object. Lives as long as the process.
    static const DBusObjectPathVTable vtable = {nullptr, &onApplicationMessage, nullptr, nullptr, nullptr, nullptr};
    dbus_connection_register_object_path(c, path.c_str(), &vtable, new ClickHandler(onClick));
    DBusError err;
    dbus_error_init(&err);
    int result = dbus_bus_request_name(c, applicationID.c_str(), DBUS_NAME_FLAG_DO_NOT_QUEUE, &err);
    dbus_error_free(&err);
    *owned = result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER || result == DBUS_REQUEST_NAME_REPLY_ALREADY_OWNER;
    taken->signal();
  });
  return taken->wait(kNamePatienceSeconds) && *owned;
}

}  // namespace ac::platform::linux_backend
