#pragma once
// The installers' files on another machine (over ssh) or in a container (through its runtime's
// exec): each operation is one short shell script run there, so the same installers edit the
// agents' settings there with the same text-preserving code, and write them back atomically
// with the backup beside them. Used by the command line, which may wait; every run has a
// deadline.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "integrations/file_access.h"

namespace Remote {

struct Ran {
  bool finished = false;  // ended by itself before the deadline
  int status = -1;        // its exit status when it exited
  std::string out, err;
};
// Runs `argv` with `input` on its standard input, killing it after `seconds`.
Ran run(const std::vector<std::string>& argv, std::string_view input, double seconds);

}  // namespace Remote

// One SSH connection that the command line's several ssh runs to a host share, so each costs a
// round trip instead of a login. Only a speed-up: while it is not up (or cannot log in), runs
// connect on their own and report what went wrong.
class SshMaster {
 public:
  static constexpr double kWaitUp = 15;  // seconds
  explicit SshMaster(const std::string& host);
  ~SshMaster();
  SshMaster(const SshMaster&) = delete;
  SshMaster& operator=(const SshMaster&) = delete;
  // The ssh options that use it; none when it did not come up.
  std::vector<std::string> options() const;

 private:
  std::string host_;
  std::string dir_;
  int pid_ = -1;
  bool up_ = false;
};

class RemoteFiles final : public FileAccess {
 public:
  // The command that runs a shell script with its arguments there.
  using Exec = std::function<std::vector<std::string>(const std::string& script,
                                                      const std::vector<std::string>& args)>;
  static constexpr double kDeadline = 30;

  // `options` go before the destination (an SshMaster's).
  static Exec overSsh(const std::string& host, std::vector<std::string> options = {});
  static Exec inContainer(const std::string& runtime, const std::string& name);

  // `where` names the machine in messages.
  RemoteFiles(std::string where, Exec exec, std::string home, std::string configHome);

  // Runs a script there: its result, or InstallError when it could not be run at all (for ssh,
  // the login failed: the message says what to do).
  Remote::Ran script(const std::string& script, const std::vector<std::string>& args,
                     std::string_view input = {});

  // Runs `questions` (code that asks exists() and onPath()) once to learn what it asks, each
  // answer false, then asks all of it in one run there: the same code run again afterwards is
  // answered without a round trip per question.
  void askAtOnce(const std::function<void()>& questions);

  std::string home() override { return home_; }
  std::string configHome() override { return configHome_; }
  bool exists(const std::string& path) override;
  std::optional<std::string> read(const std::string& path) override;
  void replace(const std::string& path, std::string_view bytes, bool backup,
               std::optional<unsigned> mode) override;
  void remove(const std::string& path) override;
  void removeEmptyDir(const std::string& path) override;
  std::vector<std::string> list(const std::string& dir) override;
  bool isExecutable(const std::string& path) override;
  bool onPath(const std::string& program) override;
  std::optional<std::string> variable(const std::string&) override { return std::nullopt; }
  std::optional<std::string> version(const std::string& program) override;
  // Copies the bundled vantler-hook and runs it there with --version before it takes the
  // place of the old copy; once per object.
  void installProgram(const std::string& path) override;

 private:
  [[noreturn]] void fail(const std::string& what, const Remote::Ran& ran);

  std::string where_;
  Exec exec_;
  std::string home_, configHome_;
  // What was read or written here, so an edit reads each file over the connection once.
  std::map<std::string, std::optional<std::string>> known_;
  // Answers learnt by askAtOnce; while `asking_`, questions are only written down.
  std::map<std::string, bool> exists_, onPath_;
  bool asking_ = false;
  bool programInstalled_ = false;
};
