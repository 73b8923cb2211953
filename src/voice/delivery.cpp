#include "voice/delivery.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>

Delivery::Delivery(Loop& loop, Clipboard& clipboard, Desktop& desktop)
    : loop_(loop),
      clipboard_(clipboard),
      desktop_(desktop),
      self_(std::make_shared<Delivery*>(this)) {}

Delivery::~Delivery() {
  if (restore_) loop_.cancel(*restore_);
}

void Delivery::paste(const std::string& text, std::function<void(bool pasted)> done) {
  std::weak_ptr<Delivery*> weak = self_;
  auto typeIt = [weak, text, done = std::move(done)] {
    auto self = weak.lock();
    if (!self) return;
    Delivery& d = **self;
    d.clipboard_.setText(text);
    d.ours_ = true;
    if (d.restore_) d.loop_.cancel(*d.restore_);
    d.restore_.reset();
    d.desktop_.typePaste(d.desktop_.focus(), text, [weak, done](bool typed) {
      auto self = weak.lock();
      if (!self) return;
      Delivery& d = **self;
      if (!typed) {
        d.ours_ = false;  // the text stays on the clipboard, now the user's
        done(false);
        return;
      }
      d.restore_ = d.loop_.after(kRestoreAfter, [weak] {
        auto self = weak.lock();
        if (!self) return;
        (*self)->restore_.reset();
        (*self)->ours_ = false;
        (*self)->clipboard_.restore();
      });
      done(true);
    });
  };
  if (ours_)
    typeIt();
  else
    clipboard_.save(std::move(typeIt));
}

bool Delivery::isTerminal(std::string_view windowClass) {
  std::string name(windowClass);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (name.find("term") != std::string::npos) return true;  // xterm, gnome-terminal, wezterm…
  static constexpr std::array kOthers{"urxvt",      "konsole", "kitty", "alacritty",   "foot",
                                      "footclient", "tilix",   "st",    "st-256color", "guake",
                                      "yakuake",    "ghostty", "rio"};
  return std::find(kOthers.begin(), kOthers.end(), name) != kOthers.end();
}
