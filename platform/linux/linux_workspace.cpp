#include "platform/linux/linux_workspace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/linux/backends.h"
#include "platform/linux/dbus_session.h"
#include "support/paths.h"
#include "support/spawn.h"

namespace ac::platform::linux_backend {
namespace {

std::vector<std::string> splitColons(const std::string& s) {
  std::vector<std::string> out;
  std::stringstream in(s);
  std::string piece;
  while (std::getline(in, piece, ':'))
    if (!piece.empty()) out.push_back(piece);
  return out;
}

// The string-level escapes every desktop-entry value may use.
std::string unescapeValue(std::string_view v) {
  std::string out;
  for (size_t i = 0; i < v.size(); ++i) {
    if (v[i] != '\\' || i + 1 == v.size()) {
      out += v[i];
      continue;
    }
    char c = v[++i];
    switch (c) {
      case 's': out += ' '; break;
      case 'n': out += '\n'; break;
      case 't': out += '\t'; break;
      case 'r': out += '\r'; break;
      case '\\': out += '\\'; break;
      default: out += '\\'; out += c;
    }
  }
  return out;
}

// Splits an Exec value into arguments: spaces separate, double quotes group,
// and inside quotes a backslash escapes one of  " ` $ \ .
std::vector<std::string> splitExec(const std::string& exec) {
  std::vector<std::string> args;
  std::string current;
  bool inArg = false, quoted = false;
  for (size_t i = 0; i < exec.size(); ++i) {
    char c = exec[i];
    if (quoted) {
      if (c == '\\' && i + 1 < exec.size() && std::string_view("\"`$\\").find(exec[i + 1]) != std::string_view::npos) {
        current += exec[++i];
      } else if (c == '"') {
        quoted = false;
      } else {
        current += c;
      }
    } else if (c == ' ' || c == '\t') {
      if (inArg) args.push_back(std::move(current));
      current.clear();
      inArg = false;
    } else {
      inArg = true;
      if (c == '"')
        quoted = true;
      else
        current += c;
    }
  }
  if (inArg) args.push_back(std::move(current));
  return args;
}

// Expands field codes in one argument; nothing when the argument was only
// a code that expands to nothing (the file and URL lists we never pass).
std::optional<std::string> expandFieldCodes(const std::string& arg, const std::string& entryPath,
                                            const std::string& name) {
  std::string out;
  bool hadCode = false;
  for (size_t i = 0; i < arg.size(); ++i) {
    if (arg[i] != '%' || i + 1 == arg.size()) {
      out += arg[i];
      continue;
    }
    char code = arg[++i];
    hadCode = true;
    if (code == '%')
      out += '%';
    else if (code == 'k')
      out += entryPath;
    else if (code == 'c')
      out += name;
    // %f %F %u %U %i and the deprecated codes expand to nothing.
  }
  if (hadCode && out.empty()) return std::nullopt;
  return out;
}

std::string executablePath() {
  char buf[4096];
  ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
}

class LinuxWorkspace final : public Workspace {
 public:
  // Without a session bus nothing can show a banner: the program is then as
  // good as unbundled, and says once what is really missing.
  std::optional<std::string> bundleIdentifier() override {
    if (DBusSession::shared()) return std::string(kLinuxBundleIdentifier);
    sayNoSessionBusOnce();
    return std::nullopt;
  }

  std::string bundlePath() override {
    std::string exe = executablePath();
    size_t slash = exe.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : exe.substr(0, slash);
  }

  // The executable's own time: replacing the program in place changes it,
  // while the directory's time would not move.
  int64_t bundleModificationTime() override {
    struct stat st {};
    if (::stat("/proc/self/exe", &st) != 0) return 0;
    return static_cast<int64_t>(st.st_mtime);
  }

  bool openURL(const std::string& url) override {
    auto opener = findInPath("xdg-open");
    if (!opener) return false;
    SpawnRequest request;
    request.executable = *opener;
    request.args = {url};
    return !launch(request);
  }

  std::optional<std::string> applicationPath(const std::string& bundleIdentifier) override {
    for (const auto& dir : xdgDataDirectories()) {
      std::string path = dir + "/applications/" + bundleIdentifier + ".desktop";
      struct stat st {};
      if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) return path;
    }
    return std::nullopt;
  }

  std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) override {
    std::vector<std::string> command;
    if (appPath.size() > 8 && appPath.ends_with(".desktop")) {
      std::ifstream in(appPath);
      std::stringstream text;
      text << in.rdbuf();
      auto exec = desktopEntryCommand(text.str(), appPath);
      if (!exec || exec->empty()) return Error{"desktop-entry", -1, "no Exec line in " + appPath};
      command = *exec;
    } else {
      command = {appPath};
    }
    if (command[0].find('/') == std::string::npos) {
      auto found = findInPath(command[0]);
      if (!found) return Error{"posix", ENOENT, command[0] + ": " + errnoText(ENOENT)};
      command[0] = *found;
    }
    SpawnRequest request;
    request.executable = command[0];
    request.args.assign(command.begin() + 1, command.end());
    request.args.insert(request.args.end(), args.begin(), args.end());
    return launch(request);
  }

  void postDistributedNotification(const std::string& name, const std::string& object) override {
    DBusSession* session = DBusSession::shared();
    auto signal = distributedNotificationSignal(name);
    if (!session || !signal) return;
    DBusMessage* m =
        dbus_message_new_signal(signal->path.c_str(), signal->interface.c_str(), signal->member.c_str());
    DBusMessageIter args;
    dbus_message_iter_init_append(m, &args);
    dbus_args::appendString(&args, object);
    session->sendAndFlush(m, 2.0);
  }

 private:
  // Starts a detached child that keeps the desktop's standard error.
  static std::optional<Error> launch(SpawnRequest request) {
    request.stderrFD = 2;
    auto started = spawnProcess(request);
    if (!started.child) return started.error;
    started.child->reapInBackground();
    return std::nullopt;
  }
};

}  // namespace

std::vector<std::string> xdgDataDirectories() {
  std::vector<std::string> dirs;
  const char* home = std::getenv("XDG_DATA_HOME");
  dirs.push_back(home && *home ? home : homeDirectory() + "/.local/share");
  const char* data = std::getenv("XDG_DATA_DIRS");
  auto rest = splitColons(data && *data ? data : "/usr/local/share:/usr/share");
  dirs.insert(dirs.end(), rest.begin(), rest.end());
  return dirs;
}

std::optional<std::vector<std::string>> desktopEntryCommand(std::string_view entryText, const std::string& entryPath) {
  std::optional<std::string> exec;
  std::string name;
  bool inEntry = false;
  std::stringstream in{std::string(entryText)};
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      inEntry = line == "[Desktop Entry]";
      continue;
    }
    size_t eq = line.find('=');
    if (!inEntry || eq == std::string::npos) continue;
    std::string key = line.substr(0, eq);
    while (!key.empty() && key.back() == ' ') key.pop_back();
    std::string value = line.substr(eq + 1);
    value.erase(0, value.find_first_not_of(' '));
    if (key == "Exec" && !exec) exec = unescapeValue(value);
    if (key == "Name" && name.empty()) name = unescapeValue(value);
  }
  if (!exec) return std::nullopt;
  std::vector<std::string> args;
  for (const auto& a : splitExec(*exec))
    if (auto expanded = expandFieldCodes(a, entryPath, name)) args.push_back(*expanded);
  return args;
}

std::optional<SignalName> distributedNotificationSignal(std::string_view name) {
  size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return std::nullopt;
  SignalName s;
  s.interface = std::string(name.substr(0, dot));
  bool upper = true;
  for (char c : name.substr(dot + 1)) {
    if (c == '-' || c == '_') {
      upper = true;
      continue;
    }
    if (!std::isalnum(static_cast<unsigned char>(c))) return std::nullopt;
    s.member += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    upper = false;
  }
  s.path = "/" + s.interface;
  for (char& c : s.path)
    if (c == '.') c = '/';
  if (s.member.empty() || std::isdigit(static_cast<unsigned char>(s.member[0]))) return std::nullopt;
  return s;
}

std::optional<std::string> findInPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  for (const auto& dir : splitColons(path && *path ? path : "/usr/local/bin:/usr/bin:/bin")) {
    std::string candidate = dir + "/" + name;
    if (isExecutableFile(candidate)) return candidate;
  }
  return std::nullopt;
}

std::unique_ptr<Workspace> makeLinuxWorkspace() { return std::make_unique<LinuxWorkspace>(); }

}  // namespace ac::platform::linux_backend
