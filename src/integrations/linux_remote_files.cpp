#include <gio/gio.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/files.h"
#include "integrations/installers.h"
#include "integrations/remote_files.h"
#include "integrations/remote_hosts.h"

namespace Remote {

Ran run(const std::vector<std::string>& args, std::string_view input, double seconds) {
  Ran ran;
  // A private context: the caller's loop, if any, does not run meanwhile.
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  std::vector<const gchar*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  argv.push_back(nullptr);
  GError* error = nullptr;
  GSubprocess* process = g_subprocess_newv(
      argv.data(),
      static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDIN_PIPE | G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                    G_SUBPROCESS_FLAGS_STDERR_PIPE),
      &error);
  if (!process) {
    ran.err = error ? error->message : "cannot start " + args[0];
    g_clear_error(&error);
  } else {
    struct State {
      bool done = false;
      GBytes* out = nullptr;
      GBytes* err = nullptr;
      bool ok = false;
    } state;
    GBytes* in = g_bytes_new(input.data(), input.size());
    g_subprocess_communicate_async(
        process, in, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* s = static_cast<State*>(data);
          s->ok = g_subprocess_communicate_finish(G_SUBPROCESS(source), result, &s->out, &s->err,
                                                  nullptr);
          s->done = true;
        },
        &state);
    g_bytes_unref(in);
    bool late = false;
    GSource* limit = g_timeout_source_new(static_cast<guint>(seconds * 1000));
    g_source_set_callback(
        limit,
        [](gpointer data) -> gboolean {
          *static_cast<bool*>(data) = true;
          return G_SOURCE_REMOVE;
        },
        &late, nullptr);
    g_source_attach(limit, context);
    while (!state.done && !late) g_main_context_iteration(context, TRUE);
    if (!state.done) {
      g_subprocess_force_exit(process);
      while (!state.done) g_main_context_iteration(context, TRUE);
    }
    g_source_destroy(limit);
    g_source_unref(limit);
    auto take = [](GBytes* bytes) {
      if (!bytes) return std::string();
      gsize n = 0;
      const char* data = static_cast<const char*>(g_bytes_get_data(bytes, &n));
      std::string text(data ? data : "", n);
      g_bytes_unref(bytes);
      return text;
    };
    ran.out = take(state.out);
    ran.err = take(state.err);
    ran.finished = state.ok && !late;
    if (ran.finished && g_subprocess_get_if_exited(process))
      ran.status = g_subprocess_get_exit_status(process);
    g_object_unref(process);
  }
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
  return ran;
}

}  // namespace Remote

namespace {

constexpr int kMissing = 3, kNotFile = 4, kTooLarge = 5;

std::string readScript() {
  return "f=$1; [ -e \"$f\" ] || exit 3; [ -f \"$f\" ] || exit 4; "
         "n=$(wc -c < \"$f\") || exit 1; [ \"$n\" -le " +
         std::to_string(ConfigFile::kMaxBytes) + " ] || exit 5; exec cat -- \"$f\"";
}

// Through a symbolic link to its target, the file's mode kept, the backup (same mode) first.
constexpr const char* kReplaceScript = R"(set -e
f=$1
t=$(readlink -f -- "$f" 2>/dev/null) || t=$f
[ -n "$t" ] || t=$f
d=$(dirname -- "$t")
mkdir -p -- "$d"
tmp=$(mktemp "$d/.vantler.XXXXXX")
trap 'rm -f -- "$tmp"' EXIT
cat > "$tmp"
if [ -n "$3" ]; then chmod "$3" -- "$tmp"
elif [ -f "$t" ]; then chmod --reference="$t" -- "$tmp"; else chmod 644 -- "$tmp"; fi
if [ "$2" = backup ] && [ -f "$t" ]; then
  b=$(mktemp "$f.vantler-backup.XXXXXX")
  cp -- "$t" "$b" && chmod --reference="$t" -- "$b" && mv -f -- "$b" "$f.vantler-backup"
fi
mv -f -- "$tmp" "$t"
trap - EXIT)";

// Checked by running it there before it replaces the old copy.
constexpr const char* kProgramScript = R"(set -e
umask 022
d=$(dirname -- "$1")
mkdir -p -- "$d"
tmp=$(mktemp "$d/.vantler-hook.XXXXXX")
trap 'rm -f -- "$tmp"' EXIT
cat > "$tmp"
chmod 755 -- "$tmp"
"$tmp" --version
mv -f -- "$tmp" "$1"
trap - EXIT)";

}  // namespace

SshMaster::SshMaster(const std::string& host) : host_(host) {
  gchar* dir = g_dir_make_tmp("vantler-ssh-XXXXXX", nullptr);
  if (!dir) return;
  dir_ = dir;
  g_free(dir);
  std::vector<std::string> args = RemoteHosts::ssh(host);
  args.insert(args.begin() + 1, {"-M", "-N", "-n", "-o", "ControlPath=" + dir_ + "/master", "-o",
                                 "ControlPersist=no"});
  std::vector<gchar*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  GPid pid;
  if (!g_spawn_async(
          nullptr, argv.data(), nullptr,
          static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH |
                                   G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL),
          nullptr, nullptr, &pid, nullptr))
    return;
  pid_ = pid;
  for (int i = 0; i < kWaitUp * 100 && !up_; ++i) {
    if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
      pid_ = -1;  // it could not log in: the runs themselves say why
      return;
    }
    up_ = Files::exists(dir_ + "/master");
    if (!up_) g_usleep(10000);
  }
}

SshMaster::~SshMaster() {
  // Asked to leave through its socket too: a wrapper in VANTLER_SSH may stand between the
  // signal and ssh.
  if (up_) {
    std::vector<std::string> exit = RemoteHosts::ssh(host_);
    exit.insert(exit.begin() + 1, {"-o", "ControlPath=" + dir_ + "/master", "-O", "exit"});
    Remote::run(exit, {}, 5);
  }
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  if (!dir_.empty()) {
    ::unlink((dir_ + "/master").c_str());
    ::rmdir(dir_.c_str());
  }
}

std::vector<std::string> SshMaster::options() const {
  if (!up_) return {};
  return {"-o", "ControlPath=" + dir_ + "/master", "-o", "ControlMaster=no"};
}

RemoteFiles::Exec RemoteFiles::overSsh(const std::string& host, std::vector<std::string> options) {
  return [host, options](const std::string& script, const std::vector<std::string>& args) {
    std::vector<std::string> argv = RemoteHosts::ssh(host);
    argv.insert(argv.begin() + 1, options.begin(), options.end());
    argv.push_back(RemoteHosts::remoteCommand(script, args));
    return argv;
  };
}

RemoteFiles::Exec RemoteFiles::inContainer(const std::string& runtime, const std::string& name) {
  return [runtime, name](const std::string& script, const std::vector<std::string>& args) {
    std::vector<std::string> argv = {runtime, "exec", "-i", name, "sh", "-c", script, "sh"};
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
  };
}

RemoteFiles::RemoteFiles(std::string where, Exec exec, std::string home, std::string configHome)
    : where_(std::move(where)),
      exec_(std::move(exec)),
      home_(std::move(home)),
      configHome_(std::move(configHome)) {}

Remote::Ran RemoteFiles::script(const std::string& script, const std::vector<std::string>& args,
                                std::string_view input) {
  std::vector<std::string> argv = exec_(script, args);
  Remote::Ran ran = Remote::run(argv, input, kDeadline);
  if (!ran.finished)
    throw InstallError(ran.status == -1 && ran.err.empty()
                           ? where_ + " did not answer within " +
                                 std::to_string(static_cast<int>(kDeadline)) + " s"
                           : "cannot run " + argv[0] + ": " + ran.err);
  // ssh's own failures have status 255; a container runtime's 125 to 127.
  if (ran.status == 255 && argv[0] != "docker" && argv[0] != "podman")
    throw InstallError(RemoteHosts::loginProblem(where_, ran.err));
  return ran;
}

void RemoteFiles::fail(const std::string& what, const Remote::Ran& ran) {
  std::string why = ran.err;
  while (!why.empty() && (why.back() == '\n' || why.back() == '\r')) why.pop_back();
  if (size_t nl = why.rfind('\n'); nl != std::string::npos) why.erase(0, nl + 1);
  throw InstallError(what + " on " + where_ + (why.empty() ? "" : ": " + why));
}

void RemoteFiles::askAtOnce(const std::function<void()>& questions) {
  exists_.clear();
  onPath_.clear();
  asking_ = true;
  try {
    questions();
  } catch (...) {
    asking_ = false;
    throw;
  }
  asking_ = false;
  // Arguments "e PATH" or "c PROGRAM"; one line "1" or "0" per pair, in order.
  std::vector<std::string> args;
  for (const auto& [path, _] : exists_) args.insert(args.end(), {"e", path});
  for (const auto& [program, _] : onPath_) args.insert(args.end(), {"c", program});
  Remote::Ran ran = script(
      "while [ $# -gt 1 ]; do if [ \"$1\" = e ]; then [ -e \"$2\" ]; else command -v "
      "\"$2\" >/dev/null 2>&1; fi && echo 1 || echo 0; shift 2; done",
      args);
  if (ran.status != 0) fail("cannot look for the agents", ran);
  size_t at = 0;
  auto next = [&] {
    bool yes = at < ran.out.size() && ran.out[at] == '1';
    size_t nl = ran.out.find('\n', at);
    at = nl == std::string::npos ? ran.out.size() : nl + 1;
    return yes;
  };
  for (auto& [path, answer] : exists_) answer = next();
  for (auto& [program, answer] : onPath_) answer = next();
}

bool RemoteFiles::exists(const std::string& path) {
  if (asking_) return exists_[path] = false;
  if (auto it = known_.find(path); it != known_.end()) return it->second.has_value();
  if (auto it = exists_.find(path); it != exists_.end()) return it->second;
  return exists_[path] = script("[ -e \"$1\" ]", {path}).status == 0;
}

bool RemoteFiles::onPath(const std::string& program) {
  if (asking_) return onPath_[program] = false;
  if (auto it = onPath_.find(program); it != onPath_.end()) return it->second;
  return onPath_[program] = script("command -v \"$1\" >/dev/null 2>&1", {program}).status == 0;
}

std::optional<std::string> RemoteFiles::version(const std::string& program) {
  if (!onPath(program)) return std::nullopt;
  Remote::Ran ran = script("timeout " + std::to_string(static_cast<int>(kVersionDeadline)) +
                               " \"$1\" --version 2>&1 | sed -n '/[^[:space:]]/{p;q;}'",
                           {program});
  std::string line = ran.out;
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  if (ran.status != 0 || line.empty()) return std::nullopt;
  return line;
}

std::optional<std::string> RemoteFiles::read(const std::string& path) {
  if (auto it = known_.find(path); it != known_.end()) return it->second;
  Remote::Ran ran = script(readScript(), {path});
  switch (ran.status) {
    case 0:
      return known_[path] = std::move(ran.out);
    case kMissing:
      return known_[path] = std::nullopt;
    case kNotFile:
      throw InstallError(ConfigFile::shown(path) + " on " + where_ +
                         " is not a regular file; left it untouched");
    case kTooLarge:
      throw InstallError(ConfigFile::shown(path) + " on " + where_ + " is larger than " +
                         std::to_string(ConfigFile::kMaxBytes >> 20) + " MB; left it untouched");
    default:
      fail("cannot read " + ConfigFile::shown(path), ran);
  }
}

void RemoteFiles::replace(const std::string& path, std::string_view bytes, bool backup,
                          std::optional<unsigned> mode) {
  char octal[8] = "";
  if (mode) std::snprintf(octal, sizeof octal, "%o", *mode);
  Remote::Ran ran = script(kReplaceScript, {path, backup ? "backup" : "none", octal}, bytes);
  known_.erase(path);
  exists_.erase(path);
  if (ran.status != 0) fail("could not save " + ConfigFile::shown(path), ran);
  known_[path] = std::string(bytes);
}

void RemoteFiles::remove(const std::string& path) {
  Remote::Ran ran = script("rm -f -- \"$1\"", {path});
  known_.erase(path);
  exists_.erase(path);
  if (ran.status != 0) fail("could not remove " + ConfigFile::shown(path), ran);
}

void RemoteFiles::removeEmptyDir(const std::string& path) {
  script("rmdir -- \"$1\" 2>/dev/null; exit 0", {path});
  exists_.erase(path);
}

std::vector<std::string> RemoteFiles::list(const std::string& dir) {
  Remote::Ran ran = script("[ -d \"$1\" ] || exit 0; cd -- \"$1\" && ls -A", {dir});
  if (ran.status != 0) fail("cannot list " + ConfigFile::shown(dir), ran);
  std::vector<std::string> names;
  for (size_t at = 0; at < ran.out.size();) {
    size_t nl = ran.out.find('\n', at);
    if (nl == std::string::npos) nl = ran.out.size();
    if (nl > at) names.push_back(ran.out.substr(at, nl - at));
    at = nl + 1;
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool RemoteFiles::isExecutable(const std::string& path) {
  return script("[ -f \"$1\" ] && [ -x \"$1\" ]", {path}).status == 0;
}

void RemoteFiles::installProgram(const std::string& path) {
  if (programInstalled_) return;
  auto source = HookInstaller::bundledBinary();
  auto bytes = source ? Files::read(*source) : std::nullopt;
  if (!bytes) throw InstallError("no vantler-hook program beside vantler to copy to " + where_);
  Remote::Ran ran = script(kProgramScript, {path}, *bytes);
  if (ran.status != 0 || ran.out.rfind("vantler-hook", 0) != 0)
    fail("the hook program does not run", ran);
  programInstalled_ = true;
}
