#pragma once
// The desktop around the panel: clipboard, the default browser, the application menu, the
// desktop's light or dark preference (GTK settings and the desktop portal's color-scheme).

#include <gio/gio.h>
#include <gtk/gtk.h>

#include <functional>
#include <string>
#include <vector>

#include "app/linux_menu.h"
#include "app/panel_ports.h"

class LinuxDesktop final : public Desktop {
 public:
  LinuxDesktop(GtkApplication* app, std::vector<std::string> mechanisms);
  ~LinuxDesktop() override;
  LinuxDesktop(const LinuxDesktop&) = delete;
  LinuxDesktop& operator=(const LinuxDesktop&) = delete;

  void copyText(const std::string& text) override;
  void openUri(const std::string& uri) override;
  void showMenu(std::function<void()> closed) override;
  void quit() override;
  bool prefersDark() const override;
  std::vector<std::string> mechanisms() const override { return mechanisms_; }

  // Runs when the desktop's appearance changes.
  std::function<void()> onThemeChanged;
  // The application menu shown by `showMenu`, and what choosing an item does.
  std::function<std::vector<MenuItem>()> menuModel;
  LinuxMenu::Chosen menuChosen;

 private:
  void watchPortal();
  void themeChanged();
  static void onSettingsNotify(GObject*, GParamSpec*, gpointer self);

  GtkApplication* app_;
  std::vector<std::string> mechanisms_;
  GtkWidget* menu_ = nullptr;
  std::function<void()> menuClosed_;
  GDBusConnection* bus_ = nullptr;
  guint portalSignal_ = 0;
  GCancellable* cancellable_ = nullptr;
  // The portal's color-scheme: 0 no preference, 1 dark, 2 light; -1 unknown.
  int colorScheme_ = -1;
};
