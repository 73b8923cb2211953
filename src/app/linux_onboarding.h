#pragma once
// The first-run window: the page loaded with "?onboard" in a centred window of its own, 460
// wide, whose height follows the page. Settings chosen there are stored at once; "Get started"
// (or closing the window) records "onboarded" and hands over to the panel.

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <optional>

#include "app/panel_ports.h"
#include "core/hub.h"
#include "web/linux_web_stage.h"

class Onboarding {
 public:
  static constexpr int kWidth = 460;
  static constexpr int kHeight = 560;
  static constexpr double kFadeSeconds = 0.18;

  // `home`: the screen whose top inset the page's geometry uses.
  Onboarding(GtkApplication* app, Hub& hub, std::optional<Screen> home, std::function<void()> done);
  ~Onboarding();
  Onboarding(const Onboarding&) = delete;
  Onboarding& operator=(const Onboarding&) = delete;

  void show();

 private:
  void handle(const Json& message);
  void push();
  void resize(int height);
  void finish();

  GtkApplication* app_;
  Hub& hub_;
  std::optional<Screen> home_;
  std::function<void()> done_;
  WebStage stage_;
  GtkWidget* window_ = nullptr;
  bool moved_ = false;  // by the user, with Alt and a drag
  bool finishing_ = false;
  gint64 fadeStart_ = 0;
  int height_ = kHeight;
};
