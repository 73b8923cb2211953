#pragma once
// The Alt key alone as a gesture: a quick double tap opens the panel, holding it starts
// push-to-talk dictation and letting go ends it. Alt used as a modifier (with another key, or
// together with Shift, Ctrl or Super) never counts. Pure logic on the loop's clock; the desktop
// feeds it the key events it sees.

#include <functional>
#include <optional>
#include <string>

#include "core/loop.h"

class OptionTap {
 public:
  static constexpr double kDoubleTap = 0.32;  // clean release to the next press
  static constexpr double kHold = 0.45;       // press held this long: push-to-talk

  // `logPath`: the keys log, appended to with the loop's uptime (empty: no log).
  OptionTap(Loop& loop, std::string logPath);
  ~OptionTap();
  OptionTap(const OptionTap&) = delete;
  OptionTap& operator=(const OptionTap&) = delete;

  std::function<void()> onOpen;       // double tap
  std::function<void()> onTalkStart;  // held long enough
  std::function<void()> onTalkEnd;    // released after a hold, or the hold spoiled

  void altPressed();
  // A release while Alt is already up is ignored (synthetic input can deliver it twice).
  void altReleased();
  // Any key that is not a modifier went down.
  void keyPressed();
  // Shift, Ctrl or Super went down or up: while one is held Alt is a modifier, not a gesture.
  void modifierPressed();
  void modifierReleased();
  // Forgets the gesture in progress; ends push-to-talk if it had started.
  void reset();

  bool talking() const { return talking_; }
  void log(const std::string& message) const;

 private:
  void cancelHold();

  Loop& loop_;
  std::string logPath_;
  double lastRelease_ = 0;  // uptime of the last clean release, 0 when none
  bool down_ = false;
  bool clean_ = false;
  bool armed_ = false;
  bool talking_ = false;
  int othersHeld_ = 0;
  std::optional<Loop::TaskId> holdTimer_;
};
