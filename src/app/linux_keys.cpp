#include "app/linux_keys.h"

#include <gtk/gtk.h>
#include <keybinder.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "app/linux_portal_keys.h"
#include "app/linux_x11_input.h"
#include "core/files.h"
#include "core/prefs.h"

namespace {

const char* settingKey(HotKey::Action action) {
  return action == HotKey::Action::open ? "openKey" : "talkKey";
}

std::string executable() {
  char path[4096];
  ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
  return n > 0 ? std::string(path, static_cast<size_t>(n)) : "vantler";
}

}  // namespace

// What the settings object shows; shared with the reporter, which outlives nothing but may
// outlive this object.
struct LinuxKeys::KeyStatus {
  bool tapReady = false;
  std::string tapWhy;
  std::string problem[2];
};

struct LinuxKeys::Binding {
  LinuxKeys* owner;
  HotKey::Action action;
  std::string accelerator;
};

LinuxKeys::LinuxKeys(Loop& loop, Defaults& defaults, bool x11)
    : loop_(loop),
      defaults_(defaults),
      x11_(x11),
      tap_(loop, Files::home() + "/.vantler/keys.log"),
      status_(std::make_shared<KeyStatus>()),
      self_(std::make_shared<LinuxKeys*>(this)) {
  std::weak_ptr<KeyStatus> status = status_;
  Prefs::addReporter([status](Json& settings) {
    auto s = status.lock();
    if (!s) return;
    settings["optionTapReady"] = s->tapReady;
    settings["optionTapWhy"] = s->tapWhy;
    for (auto action : {HotKey::Action::open, HotKey::Action::talk}) {
      Json& combo = settings[settingKey(action)];
      if (combo.is_object()) combo["problem"] = s->problem[static_cast<int>(action)];
    }
  });
  tap_.onOpen = [this] {
    if (onOpen) onOpen();
  };
  tap_.onTalkStart = [this] {
    if (onTalkStart) onTalkStart();
  };
  tap_.onTalkEnd = [this] {
    if (onTalkEnd) onTalkEnd();
  };
}

LinuxKeys::~LinuxKeys() {
  pause();
}

void LinuxKeys::start() {
  if (!x11_) {
    portal_ = std::make_unique<PortalShortcuts>(
        [this](const std::string& id) {
          fire(id == "open" ? HotKey::Action::open : HotKey::Action::talk);
        },
        [this](bool ok, const std::string& why) { portalBound(ok, why); });
  }
  if (x11_) {
    keybinder_init();
    alt_ = std::make_unique<X11Input::AltWatch>(tap_);
  }
  reload();
  restartTap();
}

std::string LinuxKeys::keysym(uint32_t code) {
  static const std::array<std::pair<std::string_view, std::string_view>, 11> kNamed{{
      {"Space", "space"},
      {".", "period"},
      {",", "comma"},
      {"/", "slash"},
      {";", "semicolon"},
      {"'", "apostrophe"},
      {"[", "bracketleft"},
      {"]", "bracketright"},
      {"`", "grave"},
      {"-", "minus"},
      {"=", "equal"},
  }};
  std::optional<std::string> label = HotKey::keyName(code);
  if (!label) return {};
  for (auto [from, to] : kNamed)
    if (*label == from) return std::string(to);
  if (label->size() == 1 && g_ascii_isalpha((*label)[0]))
    return std::string(1, g_ascii_tolower((*label)[0]));
  return *label;  // digits and F1…F12 are their own names
}

std::string LinuxKeys::accelerator(HotKey::Combo combo) {
  std::string key = keysym(combo.code);
  if (key.empty()) return {};
  std::string out;
  for (auto [bit, name] :
       {std::pair{HotKey::kControl, "<Control>"}, std::pair{HotKey::kOption, "<Alt>"},
        std::pair{HotKey::kShift, "<Shift>"}, std::pair{HotKey::kCommand, "<Super>"}})
    if (combo.mods & bit) out += name;
  return out + key;
}

void LinuxKeys::pause() {
  if (portal_) portal_->close();
  for (auto& binding : bindings_) {
    if (binding && x11_) keybinder_unbind_all(binding->accelerator.c_str());
    binding.reset();
  }
}

void LinuxKeys::reload() {
  pause();
  bind(HotKey::Action::open);
  bind(HotKey::Action::talk);
  if (portal_) {
    std::vector<PortalShortcuts::Shortcut> shortcuts;
    for (auto action : {HotKey::Action::open, HotKey::Action::talk}) {
      bool open = action == HotKey::Action::open;
      shortcuts.push_back({open ? "open" : "talk",
                           open ? "Open the Vantler panel" : "Dictate to Vantler",
                           trigger(Prefs::comboOrDefault(defaults_, action))});
    }
    portal_->bind(std::move(shortcuts));
  }
  publish();
}

void LinuxKeys::bind(HotKey::Action action) {
  int index = static_cast<int>(action);
  HotKey::Combo combo = Prefs::comboOrDefault(defaults_, action);
  std::string& problem = status_->problem[index];
  if (!x11_) {
    problem = portal_ ? "Waiting for the desktop to accept the shortcut." : noGrab(action, combo);
    return;
  }
  auto binding = std::make_unique<Binding>(Binding{this, action, accelerator(combo)});
  if (binding->accelerator.empty()) {
    problem = "This key cannot be used.";
    return;
  }
  KeybinderHandler handler = [](const char*, void* data) {
    auto* b = static_cast<Binding*>(data);
    b->owner->fire(b->action);
  };
  if (!keybinder_bind(binding->accelerator.c_str(), handler, binding.get())) {
    problem = HotKey::label(combo) + " is taken by another program.";
    tap_.log("hot key " + HotKey::label(combo) + " refused");
    return;
  }
  problem.clear();
  bindings_[index] = std::move(binding);
}

std::string LinuxKeys::noGrab(HotKey::Action action, HotKey::Combo combo) {
  return "This desktop lets no program grab keys: bind `vantler " +
         std::string(action == HotKey::Action::open ? "toggle" : "talk") + "` to " +
         HotKey::label(combo) + " in its keyboard settings.";
}

std::string LinuxKeys::trigger(HotKey::Combo combo) {
  std::string out;
  for (auto [bit, name] :
       {std::pair{HotKey::kControl, "CTRL+"}, std::pair{HotKey::kOption, "ALT+"},
        std::pair{HotKey::kShift, "SHIFT+"}, std::pair{HotKey::kCommand, "LOGO+"}})
    if (combo.mods & bit) out += name;
  return out + keysym(combo.code);
}

void LinuxKeys::portalBound(bool ok, const std::string& why) {
  tap_.log(ok ? "portal shortcuts bound" : "portal shortcuts refused: " + why);
  for (auto action : {HotKey::Action::open, HotKey::Action::talk}) {
    status_->problem[static_cast<int>(action)] =
        ok ? "" : why + " " + noGrab(action, Prefs::comboOrDefault(defaults_, action));
  }
  publish();
}

void LinuxKeys::fire(HotKey::Action action) {
  // As the key's own handling finishes first, the action runs on the next turn of the loop.
  tap_.log(std::string("hot key: ") + (action == HotKey::Action::open ? "open" : "talk"));
  std::weak_ptr<LinuxKeys*> weak = self_;
  loop_.post([weak, action] {
    auto self = weak.lock();
    if (!self) return;
    auto& callback = action == HotKey::Action::open ? (*self)->onOpen : (*self)->onTalk;
    if (callback) callback();
  });
}

void LinuxKeys::restartTap() {
  tap_.reset();
  bool on = Prefs::optionTap(defaults_);
  bool ready = alt_ && alt_->ready();
  tap_.log(std::string("start: optionTap=") + (on ? "true" : "false") +
           " trusted=" + (ready ? "true" : "false") + " bundle=" + executable());
  if (alt_) alt_->listen(on && ready);
  status_->tapReady = ready;
  status_->tapWhy = ready  ? ""
                    : alt_ ? alt_->why()
                           : "Wayland lets no program watch the Alt key: bind `vantler talk` to a "
                             "key in the desktop's keyboard settings instead.";
  publish();
}

void LinuxKeys::publish() {
  if (changed) changed();
}

bool LinuxKeys::tapReady() const {
  return status_->tapReady;
}

std::string LinuxKeys::tapWhy() const {
  return status_->tapWhy;
}

std::string LinuxKeys::keysWhy() const {
  const std::string* problems = status_->problem;
  if (problems[0] == problems[1]) return problems[0];
  return problems[0].empty()   ? problems[1]
         : problems[1].empty() ? problems[0]
                               : problems[0] + " " + problems[1];
}

std::vector<std::string> LinuxKeys::mechanisms() const {
  std::string keys = x11_ ? "hot keys: keybinder" : "hot keys: desktop portal GlobalShortcuts";
  if (!keysWhy().empty()) keys += "; " + keysWhy();
  return {keys, status_->tapReady ? "alt tap: XInput2 raw key events"
                                  : "alt tap: off (" + status_->tapWhy + ")"};
}
