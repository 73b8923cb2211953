#pragma once
// What this desktop session can do besides showing the panel, each facility with one short
// line saying why it cannot when it cannot. The page's settings show that line beside the
// setting it concerns, so nothing looks switched on that does nothing.
//
// The component that provides a facility (dictation, the global hot keys, the Alt-key
// gesture, the tray icon) marks it ready once it works, at start or later when the service
// appears, through `PanelController::setCapabilities`; until then the stand-in reasons below
// are what the user reads. A facility that stops working sets `ready` false with its reason.

#include <string>

#include "core/json.h"

struct Capability {
  bool ready = false;
  std::string reason;  // one short sentence for the user; ignored while ready
  bool operator==(const Capability&) const = default;
};

struct Capabilities {
  Capability voice;
  Capability hotKeys;
  Capability altTap;
  Capability tray;
  bool operator==(const Capabilities&) const = default;

  // Nothing beyond the panel is provided yet. `nativeWayland` is a Wayland session without
  // XWayland for the panel, where apps cannot grab keys or see a lone Alt key.
  static Capabilities none(bool nativeWayland) {
    Capabilities c;
    c.voice.reason = "Dictation isn't available in this version.";
    c.hotKeys.reason = nativeWayland ? "Bind \"vantler toggle\" and \"vantler talk\" to keys in "
                                       "your desktop's keyboard settings."
                                     : "Global hot keys aren't available in this version.";
    c.altTap.reason = nativeWayland ? "Wayland doesn't let apps see the Alt key on its own."
                                    : "Alt gestures aren't available in this version.";
    c.tray.reason = "No tray icon: right-click the panel for the menu.";
    return c;
  }

  // {"voice": {"ready": …, "reason": …}, "hotKeys": …, "altTap": …, "tray": …}
  Json json() const {
    auto one = [](const Capability& c) {
      return Json{{"ready", c.ready}, {"reason", c.ready ? "" : c.reason}};
    };
    return {{"voice", one(voice)},
            {"hotKeys", one(hotKeys)},
            {"altTap", one(altTap)},
            {"tray", one(tray)}};
  }
};
