#include "web/web_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <utility>

#include "install_dirs.h"

namespace WebRoot {
namespace {

std::optional<std::string> canonical(const std::string& path) {
  char buf[PATH_MAX];
  if (!::realpath(path.c_str(), buf)) return std::nullopt;
  return std::string(buf);
}

bool isRegular(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Percent-decodes a URL path; nothing when an escape is malformed or decodes to NUL.
std::optional<std::string> decode(std::string_view in) {
  std::string out;
  out.reserve(in.size());
  for (size_t i = 0; i < in.size(); ++i) {
    char c = in[i];
    if (c == '%') {
      if (i + 2 >= in.size()) return std::nullopt;
      int hi = hexValue(in[i + 1]);
      int lo = hexValue(in[i + 2]);
      if (hi < 0 || lo < 0) return std::nullopt;
      c = static_cast<char>(hi * 16 + lo);
      i += 2;
    }
    if (c == '\0') return std::nullopt;
    out.push_back(c);
  }
  return out;
}

}  // namespace

const char* const kFallbackPage =
    "<html><body style=\"margin:0;background:transparent;font:13px -apple-system\">\n"
    "<div style=\"margin:0 auto;width:420px;background:#000;color:#fff;border-radius:0 0 22px "
    "22px;padding:48px 20px 18px;text-align:center\">\n"
    "<b>Vantler</b> — web bundle missing.<br><span style=\"opacity:.6\">Run <code>npm run "
    "build</code> in <code>web/</code>, then relaunch.</span>\n"
    "</div></body></html>";

std::string mimeType(std::string_view path) {
  static constexpr std::array<std::pair<std::string_view, std::string_view>, 19> kTypes{{
      {"html", "text/html"},    {"js", "text/javascript"},    {"mjs", "text/javascript"},
      {"css", "text/css"},      {"json", "application/json"}, {"map", "application/json"},
      {"svg", "image/svg+xml"}, {"png", "image/png"},         {"jpg", "image/jpeg"},
      {"jpeg", "image/jpeg"},   {"gif", "image/gif"},         {"webp", "image/webp"},
      {"ico", "image/x-icon"},  {"woff", "font/woff"},        {"woff2", "font/woff2"},
      {"ttf", "font/ttf"},      {"otf", "font/otf"},          {"wasm", "application/wasm"},
      {"txt", "text/plain"},
  }};
  size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  size_t dot = name.rfind('.');
  if (dot != std::string_view::npos) {
    std::string_view ext = name.substr(dot + 1);
    for (const auto& [e, type] : kTypes)
      if (e == ext) return std::string(type);
  }
  return "application/octet-stream";
}

std::vector<std::string> candidates(const char* webDirEnv, const std::string& executableDir,
                                    const std::string& workingDir) {
  std::vector<std::string> dirs;
  if (webDirEnv && *webDirEnv) dirs.emplace_back(webDirEnv);
  if (!executableDir.empty()) {
    dirs.push_back(executableDir + "/" + InstallDirs::kWeb);
    dirs.push_back(executableDir + "/web");
  }
  if (!workingDir.empty()) dirs.push_back(workingDir + "/web/dist");
  return dirs;
}

std::optional<std::string> find(const std::vector<std::string>& dirs) {
  for (const std::string& dir : dirs) {
    auto real = canonical(dir);
    if (real && isRegular(*real + "/index.html")) return real;
  }
  return std::nullopt;
}

std::optional<std::string> resolve(const std::string& root, std::string_view requestPath) {
  auto path = decode(requestPath);
  if (!path) return std::nullopt;
  while (!path->empty() && path->front() == '/') path->erase(0, 1);
  if (path->empty()) return std::nullopt;
  auto real = canonical(root + "/" + *path);
  if (!real || real->compare(0, root.size() + 1, root + "/") != 0) return std::nullopt;
  if (!isRegular(*real)) return std::nullopt;
  return real;
}

std::optional<std::string> readFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  struct stat st;
  std::optional<std::string> bytes;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<size_t>(st.st_size) <= kMaxFileBytes) {
    std::string data(static_cast<size_t>(st.st_size), '\0');
    size_t got = 0;
    while (got < data.size()) {
      ssize_t n = ::read(fd, data.data() + got, data.size() - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    data.resize(got);
    bytes = std::move(data);
  }
  ::close(fd);
  return bytes;
}

}  // namespace WebRoot
