#include "app/panel_menu.h"

namespace AppMenu {

std::string summary(size_t sessions, size_t waiting) {
  if (sessions == 0) return "No sessions right now";
  std::string text = std::to_string(sessions) + " session" + (sessions == 1 ? "" : "s");
  if (waiting > 0)
    text += " · " + std::to_string(waiting) + " need" + (waiting == 1 ? "s" : "") + " you";
  return text;
}

std::vector<MenuItem> build(const MenuFacts& f) {
  using K = MenuItem::Kind;
  auto label = [](std::string title) { return MenuItem{K::label, std::move(title), ""}; };
  auto action = [](std::string title, const char* name) {
    return MenuItem{K::action, std::move(title), name};
  };
  const MenuItem separator{};

  std::vector<MenuItem> items{label("Vantler " + f.version), label(summary(f.sessions, f.waiting))};
  // The update feed announced a newer version: choosing it opens the release's page.
  if (!f.newerVersion.empty())
    items.push_back(action("Vantler " + f.newerVersion + " Is Available…", Action::download));
  items.push_back(separator);
  items.push_back(action("Open Vantler", Action::open));
  items.push_back(action("Settings…", Action::settings));
  if (f.placedAway) items.push_back(action("Move Back to the Top", Action::home));
  if (f.anyFinished) items.push_back(action("Clear Finished", Action::clear));
  items.push_back(separator);
  items.push_back(
      action(f.claudeHooks ? "Disconnect Claude Code" : "Connect Claude Code", Action::claude));
  if (f.cursorAvailable)
    items.push_back(action(f.cursorHooks ? "Disconnect Cursor" : "Connect Cursor", Action::cursor));
  // Remote hosts are shown with their tunnels; they are added and removed in the settings.
  if (!f.remotes.empty()) {
    items.push_back(separator);
    items.push_back(label("Remote Hosts"));
    for (const std::string& host : f.remotes) items.push_back(label("    " + host));
    items.push_back(action("Manage Remote Hosts…", Action::settings));
    items.push_back(separator);
  }
  items.push_back(action("Show Walkthrough", Action::tour));
  items.push_back(action("Check for Updates…", Action::updates));
  items.push_back(separator);
  items.push_back(action("Quit Vantler", Action::quit));
  return items;
}

}  // namespace AppMenu
