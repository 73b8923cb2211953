#pragma once
// Global shortcuts through the desktop portal (org.freedesktop.portal.GlobalShortcuts), for
// Wayland desktops that offer it (KDE Plasma, GNOME 48 and later, Hyprland). The desktop owns
// the keys: it may ask the user to confirm or change them, and it reports each press.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gio/gio.h>

#include "app/linux_portal_request.h"

class PortalShortcuts {
 public:
  struct Shortcut {
    std::string id;           // "open", "talk"
    std::string description;  // shown by the desktop
    std::string trigger;      // preferred keys in the shortcuts format: "CTRL+ALT+r"
  };

  // `activated` gets the id of each shortcut pressed; `bound` says once per `bind` whether
  // the desktop took the shortcuts (with its reason when not).
  PortalShortcuts(std::function<void(const std::string& id)> activated,
                  std::function<void(bool ok, const std::string& why)> bound);
  ~PortalShortcuts();
  PortalShortcuts(const PortalShortcuts&) = delete;
  PortalShortcuts& operator=(const PortalShortcuts&) = delete;

  // Opens a portal session and binds the shortcuts to it; a session already open is closed
  // first (a session binds only once).
  void bind(std::vector<Shortcut> shortcuts);
  // Closes the session: no more presses until the next `bind`.
  void close();

 private:
  // `done` gets the results when the answer is a success; failures are reported as such.
  void request(const char* method, std::function<GVariant*(GVariant* options)> parameters,
               std::function<void(GVariant* results)> done);
  std::function<void(const PortalRequests::Failure&)> failed();
  void fail(const std::string& why);
  void createSession();
  void bindShortcuts();

  std::function<void(const std::string&)> activated_;
  std::function<void(bool, const std::string&)> bound_;
  GDBusConnection* bus_ = nullptr;
  std::string session_;
  std::vector<Shortcut> shortcuts_;
  guint activatedSignal_ = 0;
  PortalRequests requests_;  // a new bind or close drops answers to older requests
};
