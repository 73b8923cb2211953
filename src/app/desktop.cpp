#include "app/desktop.h"

#include <glib-unix.h>
#include <gtk/gtk.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include "app/instance.h"
#include "app/linux_desktop.h"
#include "app/linux_feed.h"
#include "app/linux_keys.h"
#include "app/linux_notifications.h"
#include "app/linux_onboarding.h"
#include "app/linux_panel_window.h"
#include "app/linux_paste.h"
#include "app/linux_raise.h"
#include "app/linux_session.h"
#include "app/linux_tray.h"
#include "app/linux_voice.h"
#include "app/panel_controller.h"
#include "app/panel_geometry.h"
#include "app/services.h"
#include "core/files.h"
#include "usage/usage_meter.h"
#include "version.h"
#include "web/linux_web_stage.h"

namespace DesktopApp {
namespace {

bool envSet(const char* name) {
  const char* v = std::getenv(name);
  return v && *v;
}

// Everything the running app owns, destroyed in reverse order at shutdown.
struct App {
  GtkApplication* gtk = nullptr;
  std::string backend;
  GLibLoop loop;
  std::optional<Instance> instance;
  std::unique_ptr<Services> services;
  std::unique_ptr<UsageMeter> usage;
  std::unique_ptr<WebStage> stage;
  std::unique_ptr<LinuxPanelWindow> window;
  std::unique_ptr<LinuxDesktop> desktop;
  std::shared_ptr<DesktopVoice> voice;
  std::unique_ptr<CurlFeedFetcher> feed;
  std::unique_ptr<Updater> updates;
  std::unique_ptr<LinuxTray> tray;
  std::shared_ptr<LinuxKeys> keys;
  std::shared_ptr<LinuxDelivery> delivery;
  std::unique_ptr<PanelController> panel;
  std::unique_ptr<LinuxNotifications> notifier;
  std::unique_ptr<AnswerNotices> notices;
  std::unique_ptr<Onboarding> onboarding;
  guint signals[2] = {0, 0};
  bool started = false;

  void start();
  void showPanel(bool arriving);
  void stop();
};

void App::start() {
  if (started) return;
  started = true;
  const std::string home = Files::home();
  // An older instance that is not a desktop app on this bus (a daemon, or one started under
  // another session bus) still holds the socket: the newest launch wins, so it goes first.
  Instance::raiseFileLimit();
  std::string instanceError;
  if (!Services::demo()) instance = Instance::acquire(home, true, instanceError);

  services = std::make_unique<Services>(loop, home);
  std::vector<std::string> lines{backend};
  // The socket first, before anything slow: hooks that fire meanwhile are heard.
  if (Services::demo()) {
    lines.push_back("hooks: off (demonstration)");
  } else if (!instance) {
    lines.push_back("hooks: off (" + instanceError + "); agents ask in their own windows");
  } else if (services->startBridge()) {
    lines.push_back("hooks: listening on " + services->bridge()->path());
  } else {
    lines.push_back("hooks: off (" + services->bridgeError() +
                    "); agents ask in their own windows");
  }
  services->startSessions();
  usage = std::make_unique<UsageMeter>(loop);

  LinuxSession::Kind kind = LinuxSession::kind();
  stage = std::make_unique<WebStage>();
  window = std::make_unique<LinuxPanelWindow>(gtk, stage->widget(), kind);
  for (auto& line : window->mechanisms()) lines.push_back(line);
  lines.push_back(LinuxWindowRaiser::describe());
  stage->load();
  lines.push_back(stage->source());
  // Through XWayland (GNOME) keys reach X clients only while an X window has the focus: the
  // hot keys go through the portal there, as on any Wayland desktop.
  const bool xServer = kind == LinuxSession::Kind::X11 && !envSet("WAYLAND_DISPLAY");
  keys = std::make_shared<LinuxKeys>(loop, services->defaults(), xServer);
  keys->start();
  for (auto& line : keys->mechanisms()) lines.push_back(line);
  // XTest through XWayland reaches only X clients: dictated text for Wayland apps is pasted
  // through the portal there.
  delivery = std::make_shared<LinuxDelivery>(loop, services->defaults(), xServer,
                                             kind == LinuxSession::Kind::LayerShell);
  lines.push_back(delivery->mechanism());
  desktop = std::make_unique<LinuxDesktop>(gtk, lines);
  for (const auto& line : lines) std::fprintf(stderr, "vantler: %s\n", line.c_str());

  // Update checks, unless this build has no feed (VANTLER_UPDATE_FEED replaces it for tests)
  // or the sessions are only a demonstration.
  const char* feedUrl = std::getenv("VANTLER_UPDATE_FEED");
  feed = std::make_unique<CurlFeedFetcher>();
  updates = std::make_unique<Updater>(loop, services->defaults(), *feed,
                                      Services::demo() ? ""
                                      : feedUrl        ? feedUrl
                                                       : VANTLER_UPDATE_FEED,
                                      Version::kVersion);
  updates->busy = [this] {
    const auto& sessions = services->hub().sessions();
    return std::any_of(sessions.begin(), sessions.end(),
                       [](const Session& s) { return s.pending.has_value(); });
  };
  updates->changed = [this] {
    if (panel) panel->push();
  };

  // The tray icon and the panel's own menu show the same items.
  auto model = [this] { return panel ? panel->menu() : std::vector<MenuItem>{}; };
  auto chosen = [this](const std::string& action) {
    if (panel) panel->menuChosen(action);
  };
  desktop->menuModel = model;
  desktop->menuChosen = chosen;
  tray = std::make_unique<LinuxTray>(model, chosen);
  tray->changed = [this] {
    if (!panel) return;
    Capabilities now = panel->capabilities();
    now.tray = {tray->shown(), tray->missing()};
    panel->setCapabilities(now);
  };

  PanelServices panelServices;
  panelServices.usage = [this] { return usage->snapshot(); };
  panelServices.capabilities = Capabilities::none(kind != LinuxSession::Kind::X11);
  voice = std::make_shared<DesktopVoice>(loop, services->defaults());
  panelServices.voice = voice;
  panelServices.capabilities.voice = voice->capability();
  panelServices.updates = updates.get();
  panelServices.pushed = [this] {
    if (notices) notices->update();
  };
  panelServices.hotKeys = keys;
  if (const char* text = std::getenv("VANTLER_DEBUG_DICTATION"); text && *text)
    panelServices.voice = std::make_shared<ScriptedVoice>(text);
  panelServices.delivery = std::shared_ptr<Delivery>(delivery, &delivery->delivery());
  panel = std::make_unique<PanelController>(
      loop, services->hub(), services->defaults(), *window, *desktop,
      [this](const std::string& name, Json payload) { stage->send(name, std::move(payload)); },
      panelServices, PanelOptions::fromEnvironment());
  PanelEvents events = panel->events();
  // The page repaints in the new colours once the controller pushed them (0.15 s later).
  desktop->onThemeChanged = [this, changed = events.themeChanged] {
    changed();
    loop.after(0.2, [this] {
      if (window) window->renewSoon();
    });
  };
  window->setEvents(std::move(events));
  stage->onMessage = [this](const Json& message) { panel->handle(message); };
  voice->onCapabilityChanged = [this] {
    Capabilities c = panel->capabilities();
    c.voice = voice->capability();
    panel->setCapabilities(c);
  };
  notifier = std::make_unique<LinuxNotifications>();
  notices = std::make_unique<AnswerNotices>(
      services->hub(), services->defaults(), *notifier, [this] { return panel->outOfSight(); },
      [this] { panel->summon(); });
  tray->refresh();
  updates->start();
  keys->changed = [this] {
    Capabilities c = panel->capabilities();
    c.hotKeys = {keys->keysWhy().empty(), keys->keysWhy()};
    c.altTap = {keys->tapReady(), keys->tapWhy()};
    panel->setCapabilities(c);
  };
  keys->changed();

  if (services->defaults().boolean("onboarded") && !envSet("VANTLER_DEBUG_TOUR")) {
    showPanel(false);
  } else {
    onboarding = std::make_unique<Onboarding>(gtk, services->hub(),
                                              Geometry::homeScreen(window->screens()), [this] {
                                                showPanel(true);
                                                loop.post([this] { onboarding.reset(); });
                                              });
    onboarding->show();
  }
  Services::refreshHooks();
}

void App::showPanel(bool arriving) {
  panel->show(arriving);
}

void App::stop() {
  // The socket goes first: hooks waiting on this instance get their empty answer when the
  // process ends and fall back to the agent's own prompt.
  if (services) services->stop();
  onboarding.reset();
  notices.reset();
  notifier.reset();
  panel.reset();
  voice.reset();
  tray.reset();
  updates.reset();
  feed.reset();
  keys.reset();
  delivery.reset();
  desktop.reset();
  window.reset();
  stage.reset();
  usage.reset();
  services.reset();
}

void addActions(App& app) {
  static const GActionEntry entries[] = {
      {"toggle",
       +[](GSimpleAction*, GVariant*, gpointer data) {
         auto* a = static_cast<App*>(data);
         if (!a->panel) return;
         if (a->services->hub().isOpen()) {
           a->panel->dismissKeys();
           a->panel->close();
         } else {
           a->panel->summon();
         }
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"open",
       +[](GSimpleAction*, GVariant*, gpointer data) {
         if (auto* a = static_cast<App*>(data); a->panel) a->panel->summon();
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"talk",
       +[](GSimpleAction*, GVariant*, gpointer data) {
         if (auto* a = static_cast<App*>(data); a->panel) a->panel->toggleTalk();
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
      {"quit",
       +[](GSimpleAction*, GVariant*, gpointer data) {
         g_application_quit(G_APPLICATION(static_cast<App*>(data)->gtk));
       },
       nullptr,
       nullptr,
       nullptr,
       {}},
  };
  g_action_map_add_action_entries(G_ACTION_MAP(app.gtk), entries, G_N_ELEMENTS(entries), &app);
}

gboolean quitOnSignal(gpointer data) {
  g_application_quit(G_APPLICATION(static_cast<App*>(data)->gtk));
  return G_SOURCE_CONTINUE;
}

int noDisplay() {
  std::fprintf(stderr,
               "vantler: no display to show the panel on; 'vantler daemon' runs Vantler without "
               "a window.\n");
  return 1;
}

}  // namespace

int run(const char* argv0) {
  if (envSet("VANTLER_LAUNCH_CHECK")) return 0;
  if (!LinuxSession::haveDisplay()) return noDisplay();
  ::signal(SIGPIPE, SIG_IGN);
  App app;
  app.backend = LinuxSession::chooseBackend();
  if (!gtk_init_check(nullptr, nullptr)) return noDisplay();
  // The installed icon, named like the menu entry, for the first-run window on X11.
  gtk_window_set_default_icon_name(kAppId);

  // The newest launch wins: it takes the bus name over and the older instance quits.
  app.gtk = gtk_application_new(
      kAppId, GApplicationFlags(G_APPLICATION_ALLOW_REPLACEMENT | G_APPLICATION_REPLACE));
  addActions(app);
  g_signal_connect(app.gtk, "activate", G_CALLBACK(+[](GApplication* gapp, gpointer data) {
                     auto* a = static_cast<App*>(data);
                     if (a->started) return;
                     g_application_hold(gapp);
                     a->start();
                   }),
                   &app);
  g_signal_connect(
      app.gtk, "shutdown",
      G_CALLBACK(+[](GApplication*, gpointer data) { static_cast<App*>(data)->stop(); }), &app);
  app.signals[0] = g_unix_signal_add(SIGTERM, quitOnSignal, &app);
  app.signals[1] = g_unix_signal_add(SIGINT, quitOnSignal, &app);

  char* args[] = {const_cast<char*>(argv0), nullptr};
  int status = g_application_run(G_APPLICATION(app.gtk), 1, args);
  for (guint s : app.signals) g_source_remove(s);
  app.stop();
  g_object_unref(app.gtk);
  return status;
}

int activate(const std::string& action) {
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  if (!bus) {
    std::fprintf(stderr, "vantler: no session bus to reach the Vantler app (%s).\n",
                 error ? error->message : "unknown error");
    g_clear_error(&error);
    return 1;
  }
  GVariant* owned = g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
      g_variant_new("(s)", kAppId), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 2000, nullptr,
      nullptr);
  gboolean running = FALSE;
  if (owned) {
    g_variant_get(owned, "(b)", &running);
    g_variant_unref(owned);
  }
  if (!running) {
    std::fprintf(stderr, "vantler: the Vantler app is not running. Start it with 'vantler'.\n");
    g_object_unref(bus);
    return 1;
  }
  GDBusActionGroup* group = g_dbus_action_group_get(bus, kAppId, kObjectPath);
  g_action_group_activate_action(G_ACTION_GROUP(group), action.c_str(), nullptr);
  bool sent = g_dbus_connection_flush_sync(bus, nullptr, nullptr);
  g_object_unref(group);
  g_object_unref(bus);
  return sent ? 0 : 1;
}

}  // namespace DesktopApp
