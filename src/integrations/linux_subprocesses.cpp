#include "integrations/linux_subprocesses.h"

// One run. It belongs to the completion callback, which frees it; `owner` is cleared when the
// runner goes first.
struct Subprocesses::Run {
  Subprocesses* owner;
  GSubprocess* process;
  GCancellable* cancellable;
  Done done;
  Loop::TaskId limit = 0;
  bool bytes = false;  // the output is taken as bytes, not checked as UTF-8
};

Subprocesses::~Subprocesses() {
  for (Run* run : runs_) {
    run->owner = nullptr;
    if (run->limit) loop_.cancel(run->limit);
    g_cancellable_cancel(run->cancellable);
    g_subprocess_force_exit(run->process);
  }
}

bool Subprocesses::run(const std::vector<std::string>& args, const Options& options, Done done) {
  GSubprocessLauncher* launcher = g_subprocess_launcher_new(static_cast<GSubprocessFlags>(
      G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE));
  if (!options.cwd.empty()) g_subprocess_launcher_set_cwd(launcher, options.cwd.c_str());
  for (const auto& [name, value] : options.env)
    g_subprocess_launcher_setenv(launcher, name.c_str(), value.c_str(), TRUE);
  std::vector<const gchar*> argv;
  for (const std::string& part : args) argv.push_back(part.c_str());
  argv.push_back(nullptr);
  GError* error = nullptr;
  GSubprocess* process = g_subprocess_launcher_spawnv(launcher, argv.data(), &error);
  g_object_unref(launcher);
  if (!process) {
    g_clear_error(&error);
    return false;
  }
  auto* run = new Run{this, process, g_cancellable_new(), std::move(done)};
  runs_.insert(run);
  run->limit = loop_.after(options.deadline, [run] {
    run->limit = 0;
    g_cancellable_cancel(run->cancellable);
    g_subprocess_force_exit(run->process);
  });
  run->bytes = options.bytes;
  if (options.bytes)
    g_subprocess_communicate_async(process, nullptr, run->cancellable, &Subprocesses::communicated,
                                   run);
  else
    g_subprocess_communicate_utf8_async(process, nullptr, run->cancellable,
                                        &Subprocesses::communicated, run);
  return true;
}

void Subprocesses::communicated(GObject* source, GAsyncResult* result, gpointer data) {
  auto* run = static_cast<Run*>(data);
  GError* error = nullptr;
  Result r;
  if (run->bytes) {
    GBytes* out = nullptr;
    GBytes* err = nullptr;
    r.finished = g_subprocess_communicate_finish(G_SUBPROCESS(source), result, &out, &err, &error);
    for (auto [bytes, text] : {std::pair{out, &r.out}, std::pair{err, &r.err}}) {
      if (!bytes) continue;
      gsize size = 0;
      const char* data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
      if (data) text->assign(data, size);
      g_bytes_unref(bytes);
    }
  } else {
    char* out = nullptr;
    char* err = nullptr;
    r.finished =
        g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &out, &err, &error);
    r.out = out ? out : "";
    r.err = err ? err : "";
    g_free(out);
    g_free(err);
  }
  g_clear_error(&error);
  r.exited0 = r.finished && g_subprocess_get_if_exited(run->process) &&
              g_subprocess_get_exit_status(run->process) == 0;
  Subprocesses* owner = run->owner;
  Done done = std::move(run->done);
  if (owner) {
    owner->runs_.erase(run);
    if (run->limit) owner->loop_.cancel(run->limit);
  }
  g_object_unref(run->process);
  g_object_unref(run->cancellable);
  delete run;
  // Last: the callback may drop the runner.
  if (owner && done) done(r);
}
