#pragma once
// What the panel controller needs from the desktop, as narrow interfaces. The controller's
// decisions (open, collapse, hold, drop, placement) are pure logic on the loop's clock; each
// session type (X11, Wayland with layer-shell, GNOME through XWayland) implements these ports
// with its own window-system calls, and the tests implement them with fakes.
//
// Coordinates are logical pixels of the desktop, origin at the top-left of the whole desktop,
// y growing downwards (GDK's convention).

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/json.h"

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double w = 0;
  double h = 0;
  double minX() const { return x; }
  double maxX() const { return x + w; }
  double minY() const { return y; }
  double maxY() const { return y + h; }
  double midX() const { return x + w / 2; }
  bool contains(Point p) const { return p.x >= x && p.x <= x + w && p.y >= y && p.y <= y + h; }
  Rect grown(double left, double top, double right, double bottom) const {
    return {x - left, y - top, w + left + right, h + top + bottom};
  }
  bool operator==(const Rect&) const = default;
};

struct Screen {
  std::string key;   // stable per monitor: connector name plus manufacturer and model
  std::string name;  // shown to the user ("DP-1 Dell U2720Q")
  Rect frame;        // the monitor's area
  Rect workArea;     // the part not covered by the desktop's own panels
  bool primary = false;
  bool fullscreen = false;  // the focused window on this monitor covers it entirely
  bool operator==(const Screen&) const = default;
};

// The panel's window as the controller drives it.
class PanelWindow {
 public:
  virtual ~PanelWindow() = default;

  virtual std::vector<Screen> screens() const = 0;
  // The global pointer position, or nothing where the session has no global pointer (Wayland):
  // there the window reports its own pointer events through `PanelEvents`.
  virtual std::optional<Point> pointer() const = 0;
  virtual bool primaryButtonDown() const = 0;

  // Moves the window to this frame (animated for the drop, with a slight overshoot).
  virtual void setFrame(const Rect& frame, bool animate) = 0;
  virtual Rect frame() const = 0;
  // Input passes through everything except these rectangles (window coordinates). The hover
  // strip is included by the caller where the session needs it.
  virtual void setInputRegion(const std::vector<Rect>& rects) = 0;
  // Raised above other keep-above windows while open; back to the normal overlay level at rest.
  virtual void setRaised(bool raised) = 0;
  // Hidden entirely (over full-screen windows) or shown.
  virtual void setVisible(bool visible) = 0;
  // Keyboard focus for typing in the panel.
  virtual void takeFocus() = 0;
  virtual void releaseFocus() = 0;
  virtual bool hasFocus() const = 0;
};

// What the window reports back to the controller.
struct PanelEvents {
  // The pointer moved over the window (window coordinates), or left it (nothing).
  std::function<void(std::optional<Point>)> pointer;
  std::function<void()> buttonReleased;
  std::function<void()> screensChanged;
  std::function<void()> themeChanged;
  std::function<void()> escape;
  // The window lost keyboard focus (the user clicked elsewhere): keyboard mode ends.
  std::function<void()> focusLost;
};

// The rest of the desktop: everything the page's commands reach outside the panel.
class Desktop {
 public:
  virtual ~Desktop() = default;
  virtual void copyText(const std::string& text) = 0;
  virtual void openUri(const std::string& uri) = 0;
  // Pops the application menu up at the pointer; `closed` runs once when it goes away.
  virtual void showMenu(std::function<void()> closed) = 0;
  virtual void quit() = 0;
  virtual bool prefersDark() const = 0;
  // One line per mechanism chosen at start ("session: x11", "panel: layer-shell", …).
  virtual std::vector<std::string> mechanisms() const = 0;
};

// Sends a named message to the page ("state", "pointer", "keys", …).
using PageSend = std::function<void(const std::string& name, Json payload)>;

// Dictation as the panel drives it. Results arrive through the callbacks on the loop's thread.
class Voice {
 public:
  virtual ~Voice() = default;
  virtual void start() = 0;
  // Stops listening; the final text then arrives through `onUpdate`.
  virtual void stop() = 0;
  // Stops listening and drops what was heard.
  virtual void cancel() = 0;
  virtual bool listening() const = 0;

  // Partial text while listening (`final` false, `level` the input level 0…1), then the whole.
  std::function<void(const std::string& text, bool final, double level)> onUpdate;
  std::function<void(const std::string& message)> onError;
};

// The stand-in while no speech engine is set up: every start fails at once.
class NoVoice final : public Voice {
 public:
  void start() override {
    if (onError) onError("Speech recognition isn't available right now.");
  }
  void stop() override {}
  void cancel() override {}
  bool listening() const override { return false; }
};

// Hears the same text every time (VANTLER_DEBUG_DICTATION), for scripted runs of the
// delivery of dictated text: listening until stopped, then the text as the final result.
class ScriptedVoice final : public Voice {
 public:
  explicit ScriptedVoice(std::string text) : text_(std::move(text)) {}
  void start() override { listening_ = true; }
  void stop() override {
    if (!listening_) return;
    listening_ = false;
    if (onUpdate) onUpdate(text_, true, 0);
  }
  void cancel() override { listening_ = false; }
  bool listening() const override { return listening_; }

 private:
  std::string text_;
  bool listening_ = false;
};

// The global hot keys and the Alt-tap gesture. The defaults do nothing.
class HotKeys {
 public:
  virtual ~HotKeys() = default;
  // Released while the page records a new combination, registered again afterwards.
  virtual void pause() {}
  virtual void reload() {}
  // Restarts the Alt-tap gesture after its setting changed.
  virtual void restartTap() {}
  // Appends a line to the keys log (~/.vantler/keys.log).
  virtual void log(const std::string&) {}

  // Set by the panel.
  std::function<void()> onOpen;       // the open key, or an Alt double-tap
  std::function<void()> onTalk;       // the talk key: dictation on or off
  std::function<void()> onTalkStart;  // Alt held down: push-to-talk begins
  std::function<void()> onTalkEnd;    // … and ends when Alt is released
};
