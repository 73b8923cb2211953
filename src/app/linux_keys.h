#pragma once
// The global hot keys and the Alt tap on the desktop. On X11 the two combinations are grabbed
// with keybinder and the Alt key is watched through XInput2 raw key events, which see a lone
// modifier without grabbing it. On Wayland the combinations go through the desktop portal's
// global shortcuts where the desktop offers them; where it does not, the desktop's own key
// bindings reach the app through `vantler toggle` and `vantler talk`, and the settings say so.
// No Wayland desktop lets a program see a lone Alt key.
//
// What works is reported into the settings object the page shows: "optionTapReady" with
// "optionTapWhy" when it is false, and a "problem" under "openKey"/"talkKey" when a combination
// could not be registered (taken by another program, or no global keys in this session).

#include <functional>
#include <memory>
#include <string>

#include "app/linux_portal_keys.h"
#include "app/linux_x11_input.h"
#include "app/panel_ports.h"
#include "core/defaults.h"
#include "core/hot_key.h"
#include "core/loop.h"
#include "voice/option_tap.h"

class LinuxKeys final : public HotKeys {
 public:
  // `x11`: the app runs on an X display (also XWayland).
  LinuxKeys(Loop& loop, Defaults& defaults, bool x11);
  ~LinuxKeys() override;
  LinuxKeys(const LinuxKeys&) = delete;
  LinuxKeys& operator=(const LinuxKeys&) = delete;

  // Registers the combinations and starts the Alt tap.
  void start();
  void pause() override;
  void reload() override;
  void restartTap() override;
  void log(const std::string& message) override { tap_.log(message); }

  // What changed in the settings object (a combination refused, the tap started or stopped).
  std::function<void()> changed;
  // Whether the Alt tap works in this session, and why not; why a hot key does not work (empty
  // when both do).
  bool tapReady() const;
  std::string tapWhy() const;
  std::string keysWhy() const;
  // "hot keys: …" and "alt tap: …" lines for the start-up log and the diagnostics.
  std::vector<std::string> mechanisms() const;

  // The X key symbol name of a stored key code ("r", "space", "period", "F5").
  static std::string keysym(uint32_t code);
  // The keybinder accelerator of a combination ("<Control><Alt>r").
  static std::string accelerator(HotKey::Combo combo);
  // The same in the desktop portal's shortcut format ("CTRL+ALT+r").
  static std::string trigger(HotKey::Combo combo);

 private:
  struct KeyStatus;
  struct Binding;
  void bind(HotKey::Action action);
  void fire(HotKey::Action action);
  void publish();
  void portalBound(bool ok, const std::string& why);
  static std::string noGrab(HotKey::Action action, HotKey::Combo combo);

  Loop& loop_;
  Defaults& defaults_;
  bool x11_;
  OptionTap tap_;
  std::shared_ptr<KeyStatus> status_;
  std::unique_ptr<Binding> bindings_[2];
  std::unique_ptr<X11Input::AltWatch> alt_;
  std::unique_ptr<PortalShortcuts> portal_;
  std::shared_ptr<LinuxKeys*> self_;
};
