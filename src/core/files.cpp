#include "core/files.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Files {

std::string home() {
  const char* h = std::getenv("HOME");
  if (h && *h) return h;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return "/";
}

std::string configHome() {
  const char* x = std::getenv("XDG_CONFIG_HOME");
  if (x && x[0] == '/') return x;
  return home() + "/.config";
}

std::optional<std::string> read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream out;
  out << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return std::move(out).str();
}

bool exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

std::string parent(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  if (slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string executable() {
  char buf[4096];
  ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return {};
  std::string path(buf, static_cast<size_t>(n));
  constexpr std::string_view kDeleted = " (deleted)";
  if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  return path;
}

bool makeDirs(const std::string& path, unsigned mode) {
  if (path.empty()) return false;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
  std::string up = parent(path);
  if (up != path && up != "." && !makeDirs(up, 0755)) return false;
  if (::mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return true;
  return false;
}

std::optional<std::string> writeAtomic(const std::string& path, std::string_view bytes,
                                       std::optional<unsigned> mode) {
  std::string dir = parent(path);
  if (!makeDirs(dir)) return "cannot create " + dir + ": " + std::strerror(errno);
  unsigned finalMode = mode.value_or(0644);
  struct stat st;
  if (!mode && ::stat(path.c_str(), &st) == 0) finalMode = st.st_mode & 07777;

  std::string tmp = path + ".tmp-XXXXXX";
  int fd = ::mkstemp(tmp.data());
  if (fd < 0) return "cannot write " + path + ": " + std::strerror(errno);
  auto fail = [&](const char* what) {
    std::string message = std::string(what) + " " + path + ": " + std::strerror(errno);
    ::close(fd);
    ::unlink(tmp.c_str());
    return message;
  };
  const char* p = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail("cannot write");
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  if (::fchmod(fd, finalMode) != 0) return fail("cannot set mode of");
  if (::fsync(fd) != 0) return fail("cannot flush");
  if (::close(fd) != 0) {
    ::unlink(tmp.c_str());
    return "cannot close " + path + ": " + std::strerror(errno);
  }
  if (::rename(tmp.c_str(), path.c_str()) != 0) {
    std::string message = "cannot replace " + path + ": " + std::strerror(errno);
    ::unlink(tmp.c_str());
    return message;
  }
  return std::nullopt;
}

}  // namespace Files
