#pragma once
// Where the installers' files are: on this machine, or on another one reached over SSH. Every
// installer reaches its files through `ConfigFile::files()`, so one installer connects an
// agent here or on a remote host; `ConfigFile::UseFiles` points them at another machine for a
// while (the command line's `remote add` and `remote remove`).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

class FileAccess {
 public:
  // Seconds a program's --version may take.
  static constexpr double kVersionDeadline = 5;
  virtual ~FileAccess() = default;
  // The home directory there, and its configuration directory (XDG_CONFIG_HOME here).
  virtual std::string home() = 0;
  virtual std::string configHome() = 0;
  virtual bool exists(const std::string& path) = 0;
  // A regular file's bytes; nothing when it does not exist. A pipe, device, directory or
  // socket is never opened, a file over ConfigFile::kMaxBytes never read whole: InstallError.
  virtual std::optional<std::string> read(const std::string& path) = 0;
  // Replaces the file all at once; a symbolic link stays and its target is replaced, keeping
  // its mode unless `mode` is given. With `backup`, the previous contents first go to path +
  // ".vantler-backup", with the same mode. Throws InstallError.
  virtual void replace(const std::string& path, std::string_view bytes, bool backup,
                       std::optional<unsigned> mode) = 0;
  // Removes a file; a missing one is no error. Throws InstallError.
  virtual void remove(const std::string& path) = 0;
  // Removes a directory when it is empty; one that is missing or holds anything stays.
  virtual void removeEmptyDir(const std::string& path) = 0;
  // The names in a directory, sorted; none when it is missing or not a directory.
  virtual std::vector<std::string> list(const std::string& dir) = 0;
  virtual bool isExecutable(const std::string& path) = 0;
  // Whether a program of that name is in a directory of PATH there.
  virtual bool onPath(const std::string& program) = 0;
  // An environment variable of the agents there; nothing when unset or not known (another
  // machine's login shell is not the environment its agents start in).
  virtual std::optional<std::string> variable(const std::string& name) = 0;
  // The first line `program --version` prints there, within a few seconds; nothing when it
  // fails, or when waiting for a program is not allowed (see waitForPrograms).
  virtual std::optional<std::string> version(const std::string& program) = 0;
  // Puts the hook program at `path`, replacing an older copy at once so a running agent keeps
  // the one it started. A missing bundled program is no error here; throws InstallError.
  virtual void installProgram(const std::string& path) = 0;
};

namespace ConfigFile {

// The files installers work on: this machine's unless a UseFiles is in force.
FileAccess& files();

// Whether installers on this machine may run an agent's program and wait a few seconds for it
// (`version`): the command line may, the app's loop never does (the default: yes).
void waitForPrograms(bool allowed);
// What `program --version` printed when it was asked beside the loop: this machine's `version`
// answers with it from then on, waiting or not.
void rememberVersion(const std::string& program, const std::string& printed);

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
