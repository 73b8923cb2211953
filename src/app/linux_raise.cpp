#include "app/linux_raise.h"

#include <glib.h>

#include <cstdio>
#include <cstdlib>

#include "app/linux_x11.h"
#include "core/files.h"

namespace {

std::string trimmed(const std::string& text) {
  size_t end = text.find_last_not_of(" \n\r\t");
  return end == std::string::npos ? "" : text.substr(0, end + 1);
}

std::vector<std::string> kwinCall(const std::string& path, const std::string& method,
                                  std::vector<std::string> args) {
  std::vector<std::string> argv = {"gdbus",         "call", "--session", "--dest", "org.kde.KWin",
                                   "--object-path", path,   "--method",  method};
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

}  // namespace

LinuxWindowRaiser::LinuxWindowRaiser(Loop& loop) : runs_(loop) {
  self_ = Files::executable();
  if (self_.empty()) self_ = "vantler";
}

void LinuxWindowRaiser::raise(const std::vector<int32_t>& pids, const std::string& place,
                              Done done) {
  Jump::Raise way = Jump::raiseWay(Files::environment);
  std::vector<std::vector<std::string>> commands;
  switch (way) {
    case Jump::Raise::x11: {
      std::vector<std::string> argv = {self_, kX11Command};
      for (int32_t pid : pids) argv.push_back(std::to_string(pid));
      commands.push_back(std::move(argv));
      break;
    }
    case Jump::Raise::sway:
      for (int32_t pid : pids)
        commands.push_back({"swaymsg", "[pid=" + std::to_string(pid) + "]", "focus"});
      break;
    case Jump::Raise::hyprland:
      for (int32_t pid : pids)
        commands.push_back({"hyprctl", "dispatch", "focuswindow", "pid:" + std::to_string(pid)});
      break;
    case Jump::Raise::kwin:
      return kwin(pids, std::move(done));
    case Jump::Raise::gnome:
      return notice(place, std::move(done));
    case Jump::Raise::none:
      return done(false, "neither DISPLAY nor WAYLAND_DISPLAY is set for Vantler");
  }
  tryEach(std::move(commands), 0, std::string(Jump::name(way)), std::move(done));
}

void LinuxWindowRaiser::tryEach(std::vector<std::vector<std::string>> commands, size_t next,
                                std::string desktop, Done done) {
  if (next >= commands.size()) return done(false, "no window of the process on " + desktop);
  std::vector<std::string> argv = commands[next];
  auto then = [this, commands = std::move(commands), next, desktop,
               done](const Subprocesses::Result& r) mutable {
    // hyprctl says "ok" for a dispatch that found its window and exits 0 either way.
    bool ok = r.exited0 && (commands[next][0] != "hyprctl" || trimmed(r.out) == "ok");
    const bool self = commands[next][0] == self_;
    if (ok && self) return done(true, desktop + " " + trimmed(r.out));
    if (ok) return done(true, desktop + " " + commands[next][1]);
    if (self) return done(false, r.finished ? trimmed(r.err) : "the X server did not answer");
    tryEach(std::move(commands), next + 1, std::move(desktop), std::move(done));
  };
  if (!runs_.run(argv, {kDeadline, {}, {}}, then))
    done(false, argv[0] + " cannot be run on " + desktop);
}

void LinuxWindowRaiser::kwin(const std::vector<int32_t>& pids, Done done) {
  // KWin runs scripts loaded over D-Bus; this one activates the window of the nearest process.
  std::string list;
  for (int32_t pid : pids) list += (list.empty() ? "" : ",") + std::to_string(pid);
  const std::string script =
      "const pids = [" + list +
      "];\n"
      "const windows = workspace.windowList ? workspace.windowList() : workspace.clientList();\n"
      "let best = null, rank = pids.length;\n"
      "for (const w of windows) {\n"
      "  const i = pids.indexOf(w.pid);\n"
      "  if (i >= 0 && i < rank) { best = w; rank = i; }\n"
      "}\n"
      "if (best && workspace.windowList) workspace.activeWindow = best;\n"
      "else if (best) workspace.activeClient = best;\n";
  const std::string path = std::string(g_get_user_runtime_dir()) + "/vantler-jump.js";
  if (auto error = Files::writeAtomic(path, script, 0600)) return done(false, *error);
  const std::string name = "vantler-jump";
  auto unload = kwinCall("/Scripting", "org.kde.kwin.Scripting.unloadScript", {name});
  runs_.run(unload, {kDeadline, {}, {}}, [this, path, name, done](const Subprocesses::Result&) {
    auto load = kwinCall("/Scripting", "org.kde.kwin.Scripting.loadScript", {path, name});
    bool started =
        runs_.run(load, {kDeadline, {}, {}}, [this, done](const Subprocesses::Result& r) {
          // "(5,)" or "(int32 5,)": the script's number is the digits before the comma.
          const size_t end = r.out.find(',');
          size_t start = end == std::string::npos ? 0 : end;
          while (start > 0 && r.out[start - 1] >= '0' && r.out[start - 1] <= '9') --start;
          const std::string number =
              r.out.substr(start, end == std::string::npos ? 0 : end - start);
          if (!r.exited0 || number.empty()) return done(false, "KWin did not load the script");
          // Plasma 6 puts the script under /Scripting, Plasma 5 at the top.
          auto run6 = kwinCall("/Scripting/Script" + number, "org.kde.kwin.Script.run", {});
          runs_.run(run6, {kDeadline, {}, {}},
                    [this, number, done](const Subprocesses::Result& r6) {
                      if (r6.exited0) return done(true, "KWin script run");
                      runs_.run(kwinCall("/" + number, "org.kde.kwin.Script.run", {}),
                                {kDeadline, {}, {}}, [done](const Subprocesses::Result& r5) {
                                  done(r5.exited0,
                                       r5.exited0 ? "KWin script run" : "KWin did not run it");
                                });
                    });
        });
    if (!started) done(false, "gdbus cannot be run");
  });
}

void LinuxWindowRaiser::notice(const std::string& place, Done done) {
  const std::string where = place.empty() ? "its terminal" : place;
  const std::string body =
      "Its tab is selected in " + where + ". GNOME lets no app bring another app's window forward.";
  std::vector<std::string> argv = {"gdbus",
                                   "call",
                                   "--session",
                                   "--dest",
                                   "org.freedesktop.Notifications",
                                   "--object-path",
                                   "/org/freedesktop/Notifications",
                                   "--method",
                                   "org.freedesktop.Notifications.Notify",
                                   "Vantler",
                                   "0",
                                   "",
                                   "Switch to " + where,
                                   body,
                                   "[]",
                                   "{}",
                                   "6000"};
  bool started = runs_.run(argv, {kDeadline, {}, {}}, [done](const Subprocesses::Result& r) {
    done(false, std::string("GNOME on Wayland raises no other app's window; ") +
                    (r.exited0 ? "the user was told" : "the notice could not be shown"));
  });
  if (!started) done(false, "GNOME on Wayland raises no other app's window; gdbus cannot be run");
}

std::string LinuxWindowRaiser::describe() {
  switch (Jump::raiseWay(Files::environment)) {
    case Jump::Raise::x11:
      return "jump: windows raised through EWMH";
    case Jump::Raise::sway:
      return "jump: windows focused through swaymsg";
    case Jump::Raise::hyprland:
      return "jump: windows focused through hyprctl";
    case Jump::Raise::kwin:
      return "jump: windows activated by a KWin script";
    case Jump::Raise::gnome:
      return "jump: tabs selected, windows not raised (GNOME on Wayland): a notice instead";
    case Jump::Raise::none:
      return "jump: no display to raise windows on";
  }
  return {};
}

int LinuxWindowRaiser::raiseX11(const std::vector<std::string>& args) {
  std::vector<long> pids;
  for (const std::string& arg : args) pids.push_back(std::atol(arg.c_str()));
  std::string why;
  unsigned long window = X11::raiseProcess(pids, why);
  if (!window) {
    std::fprintf(stderr, "%s\n", why.c_str());
    return 1;
  }
  std::printf("window 0x%lx\n", window);
  return 0;
}
