#pragma once
// Where the installers' files are: on this machine, or on another one reached over SSH. Every
// installer reaches its files through `ConfigFile::files()`, so one installer connects an
// agent here or on a remote host; `ConfigFile::UseFiles` points them at another machine for a
// while (the command line's `remote add` and `remote remove`).

#include <optional>
#include <string>
#include <string_view>

class FileAccess {
 public:
  virtual ~FileAccess() = default;
  // The home directory there, and its configuration directory (XDG_CONFIG_HOME here).
  virtual std::string home() = 0;
  virtual std::string configHome() = 0;
  virtual bool exists(const std::string& path) = 0;
  // A regular file's bytes; nothing when it does not exist. A pipe, device, directory or
  // socket is never opened, a file over ConfigFile::kMaxBytes never read whole: InstallError.
  virtual std::optional<std::string> read(const std::string& path) = 0;
  // Replaces the file all at once; a symbolic link stays and its target is replaced, keeping
  // its mode. With `backup`, the previous contents first go to path + ".vantler-backup", with
  // the same mode. Throws InstallError.
  virtual void replace(const std::string& path, std::string_view bytes, bool backup) = 0;
  // Removes a file; a missing one is no error. Throws InstallError.
  virtual void remove(const std::string& path) = 0;
  virtual bool isExecutable(const std::string& path) = 0;
  // Puts the hook program at `path`, replacing an older copy at once so a running agent keeps
  // the one it started. A missing bundled program is no error here; throws InstallError.
  virtual void installProgram(const std::string& path) = 0;
};

namespace ConfigFile {

// The files installers work on: this machine's unless a UseFiles is in force.
FileAccess& files();

// Points the installers at `other` for the lifetime of this object (one at a time, on one
// thread).
class UseFiles {
 public:
  explicit UseFiles(FileAccess& other);
  ~UseFiles();
  UseFiles(const UseFiles&) = delete;
  UseFiles& operator=(const UseFiles&) = delete;

 private:
  FileAccess* previous_;
};

}  // namespace ConfigFile
