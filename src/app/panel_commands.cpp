// The page's commands, the diagnostics text and the switches read from the environment.

#include <charconv>
#include <cstdlib>
#include <string_view>
#include <unordered_map>

#include <glib.h>
#include <sys/stat.h>

#include "app/panel_controller.h"
#include "core/files.h"
#include "core/prefs.h"
#include "integrations/installers.h"
#include "version.h"

namespace {

// The strings of an array field; anything else (absent, not an array, an element that is not a
// string) reads as no strings at all.
std::vector<std::string> strings(const Json& command, std::string_view key) {
  const Json& list = JsonField::array(command, key);
  std::vector<std::string> out;
  for (const Json& item : list) {
    if (!item.is_string()) return {};
    out.push_back(item.get<std::string>());
  }
  return out;
}

std::string shortest(double value) {
  char text[32];
  auto end = std::to_chars(text, text + sizeof text, value).ptr;
  return std::string(text, end);
}

const char* flag(bool value) {
  return value ? "true" : "false";
}

// PRETTY_NAME from an os-release file, without its quotes.
std::string prettyName(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > 64 * 1024)
    return {};
  std::optional<std::string> text = Files::read(path);
  if (!text) return {};
  std::string_view rest = *text;
  while (!rest.empty()) {
    size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
    if (!line.starts_with("PRETTY_NAME=")) continue;
    line.remove_prefix(12);
    if (line.size() >= 2 && (line.front() == '"' || line.front() == '\'') &&
        line.back() == line.front())
      line = line.substr(1, line.size() - 2);
    return std::string(line);
  }
  return {};
}

std::optional<double> number(std::string_view text) {
  double value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<std::string> env(const char* name) {
  const char* value = std::getenv(name);
  if (!value) return std::nullopt;
  return std::string(value);
}

}  // namespace

PanelOptions PanelOptions::fromEnvironment() {
  PanelOptions o;
  o.trace = env("VANTLER_TRACE").has_value();
  o.debugOpen = env("VANTLER_DEBUG_OPEN");
  if (auto cursor = env("VANTLER_FAKE_CURSOR")) {
    std::string_view text = *cursor;
    size_t comma = text.find(',');
    if (comma != std::string_view::npos) {
      auto x = number(text.substr(0, comma)), y = number(text.substr(comma + 1));
      if (x && y) o.fakeCursor = Point{*x, *y};
    }
  }
  if (auto notch = env("VANTLER_FAKE_NOTCH")) {
    if (auto width = number(*notch); width && *width > 0) o.fakeNotch = *width;
  }
  o.demoScreen = env("VANTLER_DEMO_SCREEN").value_or("");
  return o;
}

void PanelController::handle(const Json& command) {
  const Json* type = JsonField::find(command, "type");
  if (!type || !type->is_string()) return;
  const std::string id = JsonField::str(command, "id");

  using Action = void (*)(PanelController&, const Json&, const std::string&);
  static const std::unordered_map<std::string_view, Action> actions = {
      {"ready",
       [](PanelController& c, const Json&, const std::string&) {
         c.lastState_ = nullptr;  // a new page has seen nothing yet
         c.push();
         if (!c.arriving_) return;
         c.arriving_ = false;
         c.send_("hello", Json::object());
       }},
      {"tourDone",
       [](PanelController& c, const Json&, const std::string&) {
         c.defaults_.set("onboarded", true);
         c.hold("tour", false);
         c.hold("setup", false);
       }},
      {"rect",
       [](PanelController& c, const Json& m, const std::string&) {
         c.drawn_ = {JsonField::num(m, "x"), JsonField::num(m, "y"),
                     std::max(JsonField::num(m, "w"), 40.0),
                     std::max(JsonField::num(m, "h"), 20.0)};
         c.trace("RECT " + shortest(c.drawn_.x) + " " + shortest(c.drawn_.y) + " " +
                 shortest(c.drawn_.w) + " " + shortest(c.drawn_.h));
         c.refresh();
       }},
      {"glass",
       [](PanelController& c, const Json& m, const std::string&) {
         c.glassRects_.clear();
         Rect frame = c.window_.frame();
         for (const Json& r : JsonField::array(m, "rects")) {
           Rect page{JsonField::num(r, "x"), JsonField::num(r, "y"), JsonField::num(r, "w"),
                     JsonField::num(r, "h")};
           c.glassRects_.push_back(Geometry::drawnRect(page, frame));
         }
       }},
      {"dragStart", [](PanelController& c, const Json&, const std::string&) { c.beginDrag(); }},
      {"resetPosition",
       [](PanelController& c, const Json&, const std::string&) { c.resetPosition(); }},
      {"select", [](PanelController& c, const Json&, const std::string& id) { c.hub_.select(id); }},
      {"jump", [](PanelController& c, const Json&, const std::string& id) { c.hub_.jump(id); }},
      {"allow",
       [](PanelController& c, const Json&, const std::string& id) { c.hub_.decide(id, "allow"); }},
      {"deny",
       [](PanelController& c, const Json&, const std::string& id) { c.hub_.decide(id, "deny"); }},
      {"answer", [](PanelController& c, const Json& m,
                    const std::string& id) { c.hub_.answer(id, strings(m, "answers")); }},
      {"reply",
       [](PanelController& c, const Json& m, const std::string& id) {
         c.hub_.sendReply(id, JsonField::str(m, "text"));
         c.releaseFocus();
       }},
      {"engage", [](PanelController& c, const Json&, const std::string& id) { c.hub_.engage(id); }},
      {"release",
       [](PanelController& c, const Json&, const std::string& id) { c.hub_.release(id); }},
      {"answerThere",
       [](PanelController& c, const Json&, const std::string& id) {
         c.hub_.answerThere(id);
         c.releaseFocus();
       }},
      {"dismiss",
       [](PanelController& c, const Json&, const std::string& id) { c.hub_.dismiss(id); }},
      {"clear",
       [](PanelController& c, const Json&, const std::string&) { c.hub_.clearFinished(); }},
      {"undo", [](PanelController& c, const Json&, const std::string&) { c.hub_.undoClear(); }},
      {"hide",
       [](PanelController& c, const Json&, const std::string&) {
         if (c.services_.voice->listening()) {
           c.services_.voice->cancel();
           c.sendTalk("off", "");
         }
         c.holds_.clear();
         c.send_("keys", {{"on", false}});
         c.close();
       }},
      {"recordingKey",
       [](PanelController& c, const Json& m, const std::string&) {
         if (JsonField::boolean(m, "on")) {
           c.services_.hotKeys->pause();
           c.takeFocus();
         } else {
           c.services_.hotKeys->reload();
           c.releaseFocus();
         }
       }},
      {"talk", [](PanelController& c, const Json&, const std::string&) { c.toggleTalk(); }},
      // "askAccessibility" needs nothing here: no desktop asks before hot keys or paste.
      {"optionTapChanged", [](PanelController& c, const Json&,
                              const std::string&) { c.services_.hotKeys->restartTap(); }},
      {"open", [](PanelController& c, const Json&, const std::string&) { c.open(); }},
      {"setting",
       [](PanelController& c, const Json& m, const std::string&) {
         if (!JsonField::hasString(m, "key")) return;
         const Json* value = JsonField::find(m, "value");
         if (auto error =
                 Prefs::set(c.defaults_, JsonField::str(m, "key"), value ? *value : Json()))
           g_warning("Vantler setting: %s", error->c_str());
         if (JsonField::str(m, "key") == "screen")
           c.screensChanged();  // the panel moves to the chosen display
         if (JsonField::str(m, "key") == "openKey" || JsonField::str(m, "key") == "talkKey")
           c.services_.hotKeys->reload();
         c.push();
       }},
      {"copyDiagnostics", [](PanelController& c, const Json&,
                             const std::string&) { c.desktop_.copyText(c.diagnostics()); }},
      {"usage", [](PanelController& c, const Json&,
                   const std::string&) { c.send_("usage", c.services_.usage()); }},
      {"focus",
       [](PanelController& c, const Json& m, const std::string&) {
         if (JsonField::boolean(m, "on"))
           c.takeFocus();
         else
           c.releaseFocus();
       }},
      {"hold",
       [](PanelController& c, const Json& m, const std::string&) {
         if (JsonField::hasString(m, "key"))
           c.hold(JsonField::str(m, "key"), JsonField::boolean(m, "on"));
       }},
      {"menu", [](PanelController& c, const Json&, const std::string&) { c.showMenu(); }},
      {"quit", [](PanelController& c, const Json&, const std::string&) { c.desktop_.quit(); }},
      {"checkUpdates",
       [](PanelController& c, const Json&, const std::string&) {
         if (c.services_.updates) c.services_.updates->checkNow();
       }},
      {"log",
       [](PanelController& c, const Json& m, const std::string&) {
         const Json* msg = JsonField::find(m, "msg");
         std::string text = !msg               ? ""
                            : msg->is_string() ? msg->get<std::string>()
                                               : JsonField::compact(*msg);
         c.trace("PAGE " + text);
         g_message("Vantler page: %s", text.c_str());
       }},
  };
  auto it = actions.find(type->get_ref<const std::string&>());
  if (it != actions.end()) it->second(*this, command, id);
}

std::string PanelController::diagnostics() const {
  Where w = where();
  double notch = Geometry::notchWidth(options_.fakeNotch);
  std::string os = prettyName(options_.osRelease);
  std::string sessions;
  for (const Session& s : hub_.sessions()) {
    if (!sessions.empty()) sessions += ", ";
    std::string project = lastPathComponent(s.root);
    sessions += std::string(Agents::raw(s.agent)) + " " + (project.empty() ? "~" : project) + " " +
                std::string(Moods::name(s.mood));
  }
  std::string home = hub_.home().empty() ? Files::home() : hub_.home();
  std::vector<std::string> lines = {
      std::string("Vantler ") + Version::kVersion + " (" + Version::kRevision + ")",
      os.empty() ? "Linux" : "Linux " + os,
      std::string("Hooks installed: ") + flag(HookInstaller::isInstalled()),
      std::string("Socket: ") + flag(Files::exists(home + "/.vantler/run/vantler.sock")),
      "Shape: " + Geometry::shape(w.placed.has_value(), Prefs::shape(defaults_), notch) +
          ", notch " + shortest(notch) + "px, strip " +
          shortest(Geometry::strip(w.home, options_.fakeNotch.has_value())) + "px, away " +
          flag(w.placed.has_value()) + " " + Geometry::anchor(w.placed),
      "Glass: false (available false)",
  };
  for (const std::string& m : desktop_.mechanisms()) lines.push_back(m);
  const Capability& tray = services_.capabilities.tray;
  lines.push_back(tray.ready ? "tray: StatusNotifier item" : "tray: none. " + tray.reason);
  lines.push_back("Sessions: " + sessions);
  lines.push_back("Settings: " + JsonField::compact(Prefs::json(defaults_)));
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
  return text;
}
