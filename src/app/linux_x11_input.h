#pragma once
// Keyboard input on X11 below GDK: the Alt key watched through XInput2 raw events, and the
// paste keystroke typed through XTest. Kept apart because Xlib's own names (Screen, Status)
// clash with the panel's.

#include <memory>
#include <string>

class OptionTap;

namespace X11Input {

// Feeds the Alt tap from raw key events of every keyboard, on an X connection of its own, so
// nothing GDK selects or filters is disturbed. Raw events see a lone modifier without grabbing
// it, whichever window has the focus.
class AltWatch {
 public:
  explicit AltWatch(OptionTap& tap);
  ~AltWatch();
  AltWatch(const AltWatch&) = delete;
  AltWatch& operator=(const AltWatch&) = delete;

  bool ready() const;
  // Why it is not ready, in words for the settings.
  const std::string& why() const;
  // Events reach the tap only while listening.
  void listen(bool on);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The focused top-level window (_NET_ACTIVE_WINDOW): its WM_CLASS class and process id.
struct Focus {
  std::string app;  // "XTerm", "Gedit"; empty when there is no such window
  int pid = 0;
};
Focus activeWindow();

// Types Ctrl+V, or Ctrl+Shift+V with `shift`, into the focused window. False where XTest is
// missing (not an X display, or the extension is off).
bool typePaste(bool shift);

}  // namespace X11Input
