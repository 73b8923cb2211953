#pragma once
// The tray icon: a StatusNotifier item (libayatana-appindicator3) with the application menu.
// It shows where a StatusNotifier host runs on the session bus (KDE Plasma, XFCE, most panels;
// GNOME only with the AppIndicator extension). Without one the menu stays reachable from the
// panel, and `missing()` says why there is no icon.

#include <gio/gio.h>
#include <gtk/gtk.h>

#include <functional>
#include <string>
#include <vector>

#include "app/linux_menu.h"

struct _AppIndicator;

class LinuxTray {
 public:
  using Model = std::function<std::vector<MenuItem>()>;

  LinuxTray(Model model, LinuxMenu::Chosen chosen);
  ~LinuxTray();
  LinuxTray(const LinuxTray&) = delete;
  LinuxTray& operator=(const LinuxTray&) = delete;

  // A host shows the icon; if not, why (once known).
  bool shown() const { return known_ && host_; }
  std::string missing() const;
  // Rebuilds the menu when what it would show changed (also done when a host opens it).
  void refresh();

  // Whether a host shows the icon changed.
  std::function<void()> changed;

 private:
  void followOpening();
  void watchHost();
  void askHost();
  void setHost(bool present);

  Model model_;
  LinuxMenu::Chosen chosen_;
  _AppIndicator* indicator_ = nullptr;
  GtkWidget* menu_ = nullptr;
  GObject* root_ = nullptr;  // the menu's dbusmenu item, which hears a host's AboutToShow
  std::vector<MenuItem> shown_;
  GDBusConnection* bus_ = nullptr;
  GCancellable* cancellable_ = nullptr;
  guint watch_ = 0;
  guint registered_ = 0;
  bool watcher_ = false;  // org.kde.StatusNotifierWatcher is on the bus
  bool host_ = false;     // … and reports a registered host
  bool known_ = false;    // the first answer came
};
