#pragma once
// Delivery of dictated text on the desktop: the GTK clipboard saved with every format and put
// back, the focused text field followed through AT-SPI focus events, and the paste keystroke
// typed with XTest on X11; on wlroots compositors the text itself is typed with `wtype` (the
// virtual-keyboard protocol). Elsewhere on Wayland (GNOME, KDE Plasma, also an app of theirs
// through XWayland) Ctrl+V goes through the desktop portal's remote desktop keyboard; without
// it the text is left on the clipboard.

#include <memory>
#include <string>

#include "core/defaults.h"
#include "core/loop.h"
#include "voice/delivery.h"

class LinuxDelivery {
 public:
  // `x11`: an X server where XTest reaches every window (not XWayland). `wlroots`: a Wayland
  // compositor with layer-shell, where `wtype` can type (when installed). `defaults` keeps
  // the portal's restore token.
  LinuxDelivery(Loop& loop, Defaults& defaults, bool x11, bool wlroots);
  ~LinuxDelivery();
  LinuxDelivery(const LinuxDelivery&) = delete;
  LinuxDelivery& operator=(const LinuxDelivery&) = delete;

  Delivery& delivery() { return *delivery_; }
  // "paste: …" for the start-up log and the diagnostics.
  std::string mechanism() const;

 private:
  class Clipboard;
  class Focus;
  std::unique_ptr<Clipboard> clipboard_;
  std::unique_ptr<Focus> focus_;
  std::unique_ptr<Delivery> delivery_;
};
