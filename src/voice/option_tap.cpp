#include "voice/option_tap.h"

#include <cstdio>
#include <fstream>

#include "core/files.h"

OptionTap::OptionTap(Loop& loop, std::string logPath) : loop_(loop), logPath_(std::move(logPath)) {}

OptionTap::~OptionTap() {
  cancelHold();
}

void OptionTap::cancelHold() {
  if (holdTimer_) loop_.cancel(*holdTimer_);
  holdTimer_.reset();
}

void OptionTap::altPressed() {
  if (othersHeld_ > 0) {
    reset();
    return;
  }
  if (down_) return;  // key repeat
  down_ = true;
  clean_ = true;
  armed_ = lastRelease_ > 0 && loop_.uptime() - lastRelease_ < kDoubleTap;
  cancelHold();
  holdTimer_ = loop_.after(kHold, [this] {
    holdTimer_.reset();
    if (!down_ || !clean_) return;
    talking_ = true;
    log("alt held: talk");
    if (onTalkStart) onTalkStart();
  });
}

void OptionTap::altReleased() {
  if (!down_) return;
  down_ = false;
  cancelHold();
  if (talking_) {
    talking_ = false;
    armed_ = false;
    lastRelease_ = 0;
    log("alt released: talk ends");
    if (onTalkEnd) onTalkEnd();
  } else if (armed_) {
    armed_ = false;
    lastRelease_ = 0;
    if (clean_) {
      log("alt double tap: open");
      if (onOpen) onOpen();
    }
  } else {
    lastRelease_ = clean_ ? loop_.uptime() : 0;
  }
}

void OptionTap::keyPressed() {
  clean_ = false;
  lastRelease_ = 0;
  if (talking_) return;
  cancelHold();
  armed_ = false;
}

void OptionTap::modifierPressed() {
  ++othersHeld_;
  reset();
}

void OptionTap::modifierReleased() {
  if (othersHeld_ > 0) --othersHeld_;
}

void OptionTap::reset() {
  clean_ = false;
  armed_ = false;
  lastRelease_ = 0;
  cancelHold();
  if (!talking_) return;
  talking_ = false;
  log("alt gesture spoiled: talk ends");
  if (onTalkEnd) onTalkEnd();
}

void OptionTap::log(const std::string& message) const {
  if (logPath_.empty()) return;
  Files::makeDirs(Files::parent(logPath_), 0700);
  std::ofstream out(logPath_, std::ios::app);
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%.2f ", loop_.uptime());
  out << stamp << message << '\n';
}
