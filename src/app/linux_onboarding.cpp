#include "app/linux_onboarding.h"

#include <algorithm>

#include "app/linux_session.h"
#include "app/panel_geometry.h"
#include "core/prefs.h"

Onboarding::Onboarding(GtkApplication* app, Hub& hub, std::optional<Screen> home,
                       std::function<void()> done)
    : app_(app), hub_(hub), home_(std::move(home)), done_(std::move(done)) {
  stage_.onMessage = [this](const Json& message) { handle(message); };
}

Onboarding::~Onboarding() {
  if (window_) {
    g_signal_handlers_disconnect_by_data(window_, this);
    gtk_container_remove(GTK_CONTAINER(window_), stage_.widget());
    gtk_widget_destroy(window_);
  }
}

void Onboarding::show() {
  window_ = LinuxSession::transparentWindow(app_, "Welcome to Vantler");
  GtkWindow* w = GTK_WINDOW(window_);
  gtk_window_set_keep_above(w, TRUE);
  gtk_window_set_type_hint(w, GDK_WINDOW_TYPE_HINT_DIALOG);
  gtk_window_set_default_size(w, kWidth, kHeight);
  gtk_window_set_position(w, GTK_WIN_POS_CENTER);
  gtk_container_add(GTK_CONTAINER(window_), stage_.widget());
  g_signal_connect(window_, "delete-event", G_CALLBACK(+[](GtkWidget*, GdkEvent*, gpointer self) {
                     static_cast<Onboarding*>(self)->finish();
                     return TRUE;
                   }),
                   this);
  // Alt and a press anywhere moves the window, as on most Linux desktops.
  g_signal_connect(stage_.widget(), "button-press-event",
                   G_CALLBACK(+[](GtkWidget* view, GdkEventButton* e, gpointer self) {
                     if (e->button == GDK_BUTTON_PRIMARY && (e->state & GDK_MOD1_MASK)) {
                       static_cast<Onboarding*>(self)->moved_ = true;
                       gtk_window_begin_move_drag(GTK_WINDOW(gtk_widget_get_toplevel(view)),
                                                  int(e->button), int(e->x_root), int(e->y_root),
                                                  e->time);
                     }
                     return FALSE;
                   }),
                   this);
  stage_.load("?onboard");
  gtk_widget_show_all(window_);
  gtk_window_present(w);
}

void Onboarding::handle(const Json& message) {
  const std::string type = JsonField::str(message, "type");
  if (type == "ready") {
    push();
  } else if (type == "setting") {
    const Json* value = JsonField::find(message, "value");
    if (auto error =
            Prefs::set(hub_.defaults(), JsonField::str(message, "key"), value ? *value : Json()))
      g_warning("Vantler: %s", error->c_str());
    push();
  } else if (type == "size") {
    if (const Json* h = JsonField::find(message, "h"); h && h->is_number())
      resize(int(h->get<double>() + 0.5));
  } else if (type == "onboardDone") {
    finish();
  }
}

void Onboarding::push() {
  Json state = hub_.snapshot();
  state["notchWidth"] = Geometry::notchWidth(std::nullopt);
  state["strip"] = Geometry::strip(home_, false);
  state["anchor"] = "top";
  state["shape"] = "pill";
  state["stageWidth"] = kWidth;
  state["stageHeight"] = height_;
  state["theme"] = "dark";
  stage_.send("state", std::move(state));
}

void Onboarding::resize(int height) {
  if (!window_ || height <= 0 || height == height_) return;
  height_ = height;
  GtkWindow* w = GTK_WINDOW(window_);
  int x = 0, y = 0;
  gtk_window_get_position(w, &x, &y);
  gtk_widget_set_size_request(stage_.widget(), kWidth, height);
  gtk_window_resize(w, kWidth, height);
  // Centred until the user moves the window: the page's first height is that of its
  // "Loading…" line, the real one follows once the settings have arrived.
  if (!moved_ && home_) {
    const Rect& a = home_->workArea;
    x = int(a.x + (a.w - kWidth) / 2);
    y = int(a.y + (a.h - height) / 2);
  }
  // Otherwise the top edge stays where it is unless the window would leave the screen.
  if (home_) {
    const Rect& a = home_->workArea;
    y = std::max(int(a.y), std::min(y, int(a.y + a.h) - height));
  }
  gtk_window_move(w, x, y);
}

void Onboarding::finish() {
  if (finishing_ || !window_) return;
  finishing_ = true;
  hub_.defaults().set("onboarded", true);
  gtk_widget_add_tick_callback(
      window_,
      +[](GtkWidget* widget, GdkFrameClock* clock, gpointer data) -> gboolean {
        auto* self = static_cast<Onboarding*>(data);
        gint64 now = gdk_frame_clock_get_frame_time(clock);
        if (self->fadeStart_ == 0) self->fadeStart_ = now;
        double t = double(now - self->fadeStart_) / (kFadeSeconds * 1e6);
        if (t < 1) {
          gtk_widget_set_opacity(widget, 1 - t);
          return G_SOURCE_CONTINUE;
        }
        gtk_widget_hide(widget);
        // `done` may destroy this object: run it from the loop, not from the frame clock.
        g_idle_add(
            +[](gpointer d) -> gboolean {
              auto* s = static_cast<Onboarding*>(d);
              if (s->done_) s->done_();
              return G_SOURCE_REMOVE;
            },
            self);
        return G_SOURCE_REMOVE;
      },
      this, nullptr);
}
