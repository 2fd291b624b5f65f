#include "support/paths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ac {

std::string homeDirectory() {
  if (const char* h = std::getenv("HOME"); h && *h) return h;
  if (struct passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "";
}

std::string expandTilde(std::string_view path) {
  if (path.empty() || path[0] != '~') return std::string(path);
  size_t slash = path.find('/');
  std::string_view user = path.substr(1, slash == std::string_view::npos ? std::string_view::npos : slash - 1);
  std::string rest = slash == std::string_view::npos ? "" : std::string(path.substr(slash));
  if (user.empty()) return homeDirectory() + rest;
  std::string name(user);
  if (struct passwd* pw = ::getpwnam(name.c_str()); pw && pw->pw_dir) return pw->pw_dir + rest;
  return std::string(path);
}

std::string lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

namespace {

std::optional<std::string> changeableOnTheWay(std::string path) {
  const uid_t me = ::geteuid();
  bool leaf = true;
  for (;;) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return path;
    bool othersWrite = (st.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    bool stickyDirectory = S_ISDIR(st.st_mode) && (st.st_mode & S_ISVTX);
    if ((st.st_uid != me && st.st_uid != 0) || (othersWrite && (leaf || !stickyDirectory))) return path;
    if (path == "/") return std::nullopt;
    size_t slash = path.rfind('/');
    path = slash == 0 ? "/" : path.substr(0, slash);
    leaf = false;
  }
}

}  // namespace

std::optional<std::string> changeableByOthers(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  if (auto problem = changeableOnTheWay(path)) return problem;
  char* real = ::realpath(path.c_str(), nullptr);
  if (!real) return path;
  std::string resolved = real;
  std::free(real);
  return resolved == path ? std::nullopt : changeableOnTheWay(resolved);
}

std::string errnoText(int err) {
  char buf[256];
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
  return ::strerror_r(err, buf, sizeof buf);
#else
  ::strerror_r(err, buf, sizeof buf);
  return buf;
#endif
}

}  // namespace ac
