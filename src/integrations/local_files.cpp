// The installers' files on this machine.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "core/files.h"
#include "core/text.h"
#include "integrations/file_access.h"
#include "integrations/installers.h"
#include "integrations/remote_files.h"

namespace {

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a named pipe";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  return "not a regular file";
}

[[noreturn]] void refuse(const std::string& path, mode_t mode) {
  throw InstallError(ConfigFile::shown(path) + " is " + kindOf(mode) +
                     ", not a file; left it untouched");
}

[[noreturn]] void unreadable(const std::string& path) {
  throw InstallError("cannot read " + ConfigFile::shown(path) + ": " + std::strerror(errno));
}

bool isRegularFile(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Where the bytes really go: the target of a symbolic link, so a link into a dotfiles
// repository stays a link.
std::string target(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_symlink(path, ec)) return path;
  auto real = std::filesystem::weakly_canonical(path, ec);
  return ec ? path : real.string();
}

bool waitAllowed = true;
std::map<std::string, std::string> rememberedVersions;

// The first non-blank line of a program's output, if any.
std::optional<std::string> firstLine(const std::string& text) {
  std::string line = Text::firstLine(text);
  return line.empty() ? std::nullopt : std::optional(std::move(line));
}

class LocalFiles final : public FileAccess {
 public:
  std::string home() override { return Files::home(); }
  std::string configHome() override { return Files::configHome(); }
  bool exists(const std::string& path) override { return Files::exists(path); }

  std::optional<std::string> read(const std::string& path) override {
    // Looked at before opening, so a device is never opened, and again through the descriptor,
    // so what is read is what was checked. Non-blocking: a pipe without a writer cannot hang.
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
      if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
      unreadable(path);
    }
    if (!S_ISREG(st.st_mode)) refuse(path, st.st_mode);
    int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) unreadable(path);
    std::string bytes;
    try {
      if (::fstat(fd, &st) != 0) unreadable(path);
      if (!S_ISREG(st.st_mode)) refuse(path, st.st_mode);
      const size_t cap = ConfigFile::kMaxBytes;
      if (static_cast<uint64_t>(st.st_size) > cap)
        throw InstallError(ConfigFile::shown(path) + " is larger than " +
                           std::to_string(cap >> 20) + " MB; left it untouched");
      char buffer[16384];
      for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) unreadable(path);
        if (n == 0) break;
        bytes.append(buffer, static_cast<size_t>(n));
        if (bytes.size() > cap)
          throw InstallError(ConfigFile::shown(path) + " grew past " + std::to_string(cap >> 20) +
                             " MB while being read; left it untouched");
      }
    } catch (...) {
      ::close(fd);
      throw;
    }
    ::close(fd);
    return bytes;
  }

  void replace(const std::string& path, std::string_view bytes, bool backup,
               std::optional<unsigned> mode) override {
    std::string real = target(path);
    if (backup) {
      // The backup keeps the original's permissions: settings files can hold secrets. A failed
      // backup does not stop the write.
      struct stat st;
      std::optional<unsigned> mode;
      if (::stat(real.c_str(), &st) == 0) mode = st.st_mode & 0777;
      if (auto before = read(path))
        (void)Files::writeAtomic(path + std::string(ConfigFile::kBackupSuffix), *before, mode);
    }
    if (auto error = Files::writeAtomic(real, bytes, mode))
      throw InstallError("could not save " + ConfigFile::shown(path) + " (" + *error + ")");
  }

  void remove(const std::string& path) override {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
      throw InstallError("could not remove " + ConfigFile::shown(path) + ": " +
                         std::strerror(errno));
  }

  void removeEmptyDir(const std::string& path) override { ::rmdir(path.c_str()); }

  std::vector<std::string> list(const std::string& dir) override {
    std::vector<std::string> names;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
      names.push_back(it->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  bool isExecutable(const std::string& path) override {
    return isRegularFile(path) && ::access(path.c_str(), X_OK) == 0;
  }

  bool onPath(const std::string& program) override {
    const char* env = std::getenv("PATH");
    std::string_view dirs = env ? env : "";
    while (!dirs.empty()) {
      size_t colon = dirs.find(':');
      std::string_view dir = dirs.substr(0, colon);
      dirs = colon == std::string_view::npos ? std::string_view{} : dirs.substr(colon + 1);
      if (!dir.empty() && isExecutable(std::string(dir) + "/" + program)) return true;
    }
    return false;
  }

  std::optional<std::string> variable(const std::string& name) override {
    const char* value = std::getenv(name.c_str());
    return value && *value ? std::optional<std::string>(value) : std::nullopt;
  }

  std::optional<std::string> version(const std::string& program) override {
    if (auto known = rememberedVersions.find(program); known != rememberedVersions.end())
      return firstLine(known->second);
    if (!waitAllowed || !onPath(program)) return std::nullopt;
    Remote::Ran ran = Remote::run({program, "--version"}, {}, kVersionDeadline);
    if (!ran.finished || ran.status != 0) return std::nullopt;
    auto line = firstLine(ran.out);
    return line ? line : firstLine(ran.err);
  }

  void installProgram(const std::string& dest) override {
    std::string dir = Files::parent(dest);
    if (!Files::makeDirs(dir)) throw InstallError("could not create " + ConfigFile::shown(dir));
    auto source = HookInstaller::bundledBinary();
    if (!source) return;
    auto bytes = Files::read(*source);
    struct stat st;
    if (!bytes || ::stat(source->c_str(), &st) != 0)
      throw InstallError("could not read the hook program " + *source);
    unsigned mode = st.st_mode & 07777;
    struct stat old;
    if (::stat(dest.c_str(), &old) == 0 && S_ISREG(old.st_mode) && (old.st_mode & 07777) == mode &&
        Files::read(dest) == bytes)
      return;
    // Renamed into place: an agent running the old copy keeps it, a new run gets the new one.
    if (auto error = Files::writeAtomic(dest, *bytes, mode))
      throw InstallError("could not install the hook program (" + *error + ")");
  }
};

FileAccess*& current() {
  static LocalFiles local;
  static FileAccess* files = &local;
  return files;
}

}  // namespace

namespace ConfigFile {

FileAccess& files() {
  return *current();
}

void waitForPrograms(bool allowed) {
  waitAllowed = allowed;
}

void rememberVersion(const std::string& program, const std::string& printed) {
  rememberedVersions[program] = printed;
}

UseFiles::UseFiles(FileAccess& other) : previous_(current()) {
  current() = &other;
}

UseFiles::~UseFiles() {
  current() = previous_;
}

}  // namespace ConfigFile
