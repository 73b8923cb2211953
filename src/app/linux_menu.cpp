#include "app/linux_menu.h"

namespace LinuxMenu {
namespace {

struct Choice {
  Chosen chosen;
  std::string action;
};

void activated(GtkMenuItem*, gpointer data) {
  auto* choice = static_cast<Choice*>(data);
  // Copied first: the action may rebuild the menu, and with it this item.
  Chosen chosen = choice->chosen;
  std::string action = choice->action;
  if (chosen) chosen(action);
}

}  // namespace

void fill(GtkMenu* menu, const std::vector<MenuItem>& items, Chosen chosen) {
  GList* old = gtk_container_get_children(GTK_CONTAINER(menu));
  for (GList* l = old; l; l = l->next) gtk_widget_destroy(GTK_WIDGET(l->data));
  g_list_free(old);
  for (const MenuItem& item : items) {
    GtkWidget* entry = nullptr;
    if (item.kind == MenuItem::Kind::separator) {
      entry = gtk_separator_menu_item_new();
    } else {
      entry = gtk_menu_item_new_with_label(item.title.c_str());
      if (item.kind == MenuItem::Kind::label) {
        gtk_widget_set_sensitive(entry, FALSE);
      } else {
        auto* choice = new Choice{chosen, item.action};
        g_signal_connect_data(
            entry, "activate", G_CALLBACK(activated), choice,
            +[](gpointer data, GClosure*) { delete static_cast<Choice*>(data); }, GConnectFlags(0));
      }
    }
    gtk_menu_shell_append(GTK_MENU_SHELL(menu), entry);
  }
  gtk_widget_show_all(GTK_WIDGET(menu));
}

}  // namespace LinuxMenu
