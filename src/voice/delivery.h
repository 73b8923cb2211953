#pragma once
// Dictated text delivered into the application the user is typing in: put on the clipboard,
// pasted with the keyboard, and the clipboard's earlier contents put back 0.6 s later. The
// desktop supplies the clipboard, the keystroke and what has the focus; the order and the
// timing are here, on the loop's clock.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/loop.h"

class Delivery {
 public:
  static constexpr double kRestoreAfter = 0.6;

  // Where the keyboard focus is.
  enum class Target { none, field, terminal };

  class Clipboard {
   public:
    virtual ~Clipboard() = default;
    // Keeps a copy of everything on the clipboard (every format), then calls `done`.
    virtual void save(std::function<void()> done) = 0;
    virtual void setText(const std::string& text) = 0;
    // Puts the saved copy back (an empty clipboard stays empty).
    virtual void restore() = 0;
  };

  class Desktop {
   public:
    virtual ~Desktop() = default;
    virtual Target focus() = 0;
    // Types the paste keystroke (Ctrl+V, or Ctrl+Shift+V in a terminal), or, where a
    // keystroke cannot reach the clipboard, the text itself; `done(false)` when this desktop
    // lets no program type into another. `done` may come later, on the loop.
    virtual void typePaste(Target target, const std::string& text,
                           std::function<void(bool typed)> done) = 0;
  };

  Delivery(Loop& loop, Clipboard& clipboard, Desktop& desktop);
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  // A text field or a terminal of another application has the keyboard focus.
  bool typingSomewhere() { return desktop_.focus() != Target::none; }
  // Pastes the text where the focus is; `done(false)` when it could not be typed, and the text
  // is then left on the clipboard. `done` is not called once the delivery is gone.
  void paste(const std::string& text, std::function<void(bool pasted)> done);

  // A window class that names a terminal emulator ("XTerm", "kitty", "Gnome-terminal").
  static bool isTerminal(std::string_view windowClass);

 private:
  Loop& loop_;
  Clipboard& clipboard_;
  Desktop& desktop_;
  // From the paste until the restore the clipboard holds dictated text, not the user's: a
  // second paste then keeps the first copy and restores it later.
  bool ours_ = false;
  std::optional<Loop::TaskId> restore_;
  std::shared_ptr<Delivery*> self_;
};
