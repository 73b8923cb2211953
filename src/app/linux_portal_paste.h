#pragma once
// The paste keystroke through the desktop portal's RemoteDesktop interface
// (org.freedesktop.portal.RemoteDesktop), for Wayland desktops that let no program type into
// another otherwise (GNOME, KDE Plasma). The desktop asks the user once; the restore token it
// hands back is kept in the defaults, so later sessions open without asking again.

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/linux_portal_request.h"
#include "core/defaults.h"
#include "core/loop.h"

class PortalKeyboard {
 public:
  static constexpr const char* kTokenKey = "pasteRestoreToken";
  // For the session to open, the user's answer to the desktop's dialog included.
  static constexpr double kOpenDeadline = 30;

  PortalKeyboard(Loop& loop, Defaults& defaults);
  ~PortalKeyboard();
  PortalKeyboard(const PortalKeyboard&) = delete;
  PortalKeyboard& operator=(const PortalKeyboard&) = delete;

  // Types Ctrl+V (Ctrl+Shift+V for a terminal), opening the session first when needed;
  // `done(false)` when there is no portal, the user refused or the desktop did not answer in
  // time. `done` is not called once this object is gone.
  void paste(bool terminal, std::function<void(bool typed)> done);

 private:
  void request(const char* method, std::function<GVariant*(GVariant* options)> parameters,
               std::function<void(GVariant* results)> done);
  std::function<void(const PortalRequests::Failure&)> failed();
  void open();
  void selectDevices();
  void start();
  void finishOpening(bool ok);
  void closeSession();
  void type(bool terminal, std::function<void(bool)> done);

  Loop& loop_;
  Defaults& defaults_;
  GDBusConnection* bus_ = nullptr;
  std::string session_;
  bool started_ = false;
  bool opening_ = false;
  std::vector<std::pair<bool, std::function<void(bool)>>> waiting_;  // terminal, done
  std::optional<Loop::TaskId> deadline_;
  guint closedSignal_ = 0;
  PortalRequests requests_;  // a failed or abandoned opening drops answers to its requests
  std::shared_ptr<PortalKeyboard*> self_;
};
