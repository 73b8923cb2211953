#pragma once
// The application menu drawn as a GtkMenu, for the tray icon and the pop-up from the panel.

#include <gtk/gtk.h>

#include <functional>
#include <string>
#include <vector>

#include "app/panel_menu.h"

namespace LinuxMenu {

using Chosen = std::function<void(const std::string& action)>;

// Replaces the menu's items by `items`; choosing an action item calls `chosen` with its action.
void fill(GtkMenu* menu, const std::vector<MenuItem>& items, Chosen chosen);

}  // namespace LinuxMenu
