#include "app/linux_panel_window.h"

#include <gtk-layer-shell.h>

#include <algorithm>
#include <cmath>

#include "app/linux_x11.h"

namespace {

// The drop curve: cubic Bézier through (0.2, 0.9) and (0.3, 1.05), evaluated at time fraction t.
double ease(double t) {
  constexpr double x1 = 0.2, y1 = 0.9, x2 = 0.3, y2 = 1.05;
  auto bezier = [](double a, double b, double s) {
    return 3 * a * s * (1 - s) * (1 - s) + 3 * b * s * s * (1 - s) + s * s * s;
  };
  double lo = 0, hi = 1, s = t;
  for (int i = 0; i < 30; ++i) {  // x(s) rises monotonically: bisect for x(s) = t
    s = (lo + hi) / 2;
    if (bezier(x1, x2, s) < t)
      lo = s;
    else
      hi = s;
  }
  return bezier(y1, y2, s);
}

Rect toRect(const GdkRectangle& r) {
  return {double(r.x), double(r.y), double(r.width), double(r.height)};
}

Rect lerp(const Rect& a, const Rect& b, double k) {
  return {a.x + (b.x - a.x) * k, a.y + (b.y - a.y) * k, a.w + (b.w - a.w) * k,
          a.h + (b.h - a.h) * k};
}

GdkDevice* pointerDevice(GtkWidget* widget) {
  GdkSeat* seat = gdk_display_get_default_seat(gtk_widget_get_display(widget));
  return seat ? gdk_seat_get_pointer(seat) : nullptr;
}

}  // namespace

LinuxPanelWindow::LinuxPanelWindow(GtkApplication* app, GtkWidget* content, LinuxSession::Kind kind)
    : content_(content), kind_(kind) {
  window_ = LinuxSession::transparentWindow(app, "Vantler");
  GtkWindow* w = GTK_WINDOW(window_);
  composited_ = gdk_screen_is_composited(gtk_widget_get_screen(window_));

  if (kind_ == LinuxSession::Kind::LayerShell) {
    gtk_layer_init_for_window(w);
    gtk_layer_set_namespace(w, "vantler");
    gtk_layer_set_layer(w, GTK_LAYER_SHELL_LAYER_OVERLAY);
    gtk_layer_set_anchor(w, GTK_LAYER_SHELL_EDGE_TOP, TRUE);
    gtk_layer_set_anchor(w, GTK_LAYER_SHELL_EDGE_LEFT, TRUE);
    gtk_layer_set_exclusive_zone(w, -1);
    gtk_layer_set_keyboard_mode(w, GTK_LAYER_SHELL_KEYBOARD_MODE_NONE);
  } else {
    // A dock window takes clicks without taking focus from the user's application.
    gtk_window_set_type_hint(w, GDK_WINDOW_TYPE_HINT_DOCK);
    gtk_window_set_keep_above(w, TRUE);
    gtk_window_set_skip_taskbar_hint(w, TRUE);
    gtk_window_set_skip_pager_hint(w, TRUE);
    gtk_window_set_focus_on_map(w, FALSE);
    gtk_window_stick(w);
  }

  gtk_container_add(GTK_CONTAINER(window_), content_);
  gtk_widget_add_events(content_, GDK_POINTER_MOTION_MASK | GDK_ENTER_NOTIFY_MASK |
                                      GDK_LEAVE_NOTIFY_MASK | GDK_BUTTON_PRESS_MASK |
                                      GDK_BUTTON_RELEASE_MASK | GDK_KEY_PRESS_MASK);
  // Connected to the view itself so these run before the page's own handling.
  g_signal_connect(content_, "motion-notify-event", G_CALLBACK(onMotion), this);
  g_signal_connect(content_, "enter-notify-event", G_CALLBACK(onCrossing), this);
  g_signal_connect(content_, "leave-notify-event", G_CALLBACK(onCrossing), this);
  g_signal_connect(content_, "button-press-event", G_CALLBACK(onButton), this);
  g_signal_connect(content_, "button-release-event", G_CALLBACK(onButton), this);
  g_signal_connect(content_, "key-press-event", G_CALLBACK(onKey), this);
  g_signal_connect(window_, "focus-out-event", G_CALLBACK(onFocusOut), this);
  g_signal_connect(window_, "draw", G_CALLBACK(onDraw), this);
  g_signal_connect(window_, "realize", G_CALLBACK(onRealize), this);
  GdkScreen* screen = gtk_widget_get_screen(window_);
  g_signal_connect(screen, "monitors-changed", G_CALLBACK(onMonitorsChanged), this);
  g_signal_connect(screen, "size-changed", G_CALLBACK(onMonitorsChanged), this);
  loadScreens();
}

LinuxPanelWindow::~LinuxPanelWindow() {
  g_signal_handlers_disconnect_by_data(gtk_widget_get_screen(window_), this);
  g_signal_handlers_disconnect_by_data(content_, this);
  g_signal_handlers_disconnect_by_data(window_, this);
  if (tick_) gtk_widget_remove_tick_callback(window_, tick_);
  if (renewTimer_) g_source_remove(renewTimer_);
  // The page's view belongs to its stage, which outlives this window's use of it.
  gtk_container_remove(GTK_CONTAINER(window_), content_);
  gtk_widget_destroy(window_);
}

std::vector<std::string> LinuxPanelWindow::mechanisms() const {
  std::vector<std::string> lines;
  lines.push_back(std::string("session: ") + LinuxSession::name(kind_));
  switch (kind_) {
    case LinuxSession::Kind::X11:
      lines.push_back("panel: keep-above dock window, input shape");
      lines.push_back("pointer: global pointer polled");
      lines.push_back(composited_ ? "transparency: compositing manager"
                                  : "transparency: none (window shaped to what the page paints)");
      break;
    case LinuxSession::Kind::LayerShell:
      lines.push_back("panel: layer-shell overlay surface, input region");
      lines.push_back("pointer: the panel's own pointer events");
      break;
    case LinuxSession::Kind::Wayland:
      lines.push_back("panel: ordinary window (the compositor offers no layer-shell and no X11)");
      lines.push_back("pointer: the panel's own pointer events");
      break;
  }
  return lines;
}

// --- screens ---

void LinuxPanelWindow::loadScreens() {
  screens_.clear();
  GdkDisplay* display = gtk_widget_get_display(window_);
  int n = gdk_display_get_n_monitors(display);
  for (int i = 0; i < n; ++i) {
    GdkMonitor* m = gdk_display_get_monitor(display, i);
    GdkRectangle geometry, work;
    gdk_monitor_get_geometry(m, &geometry);
    gdk_monitor_get_workarea(m, &work);
    const char* maker = gdk_monitor_get_manufacturer(m);
    const char* model = gdk_monitor_get_model(m);
    Screen s;
    // GTK 3 has no connector name: the index with the maker and model keeps a monitor apart
    // from the others, and from a different monitor plugged into the same place.
    s.key = std::to_string(i) + ":" + (maker ? maker : "") + ":" + (model ? model : "");
    std::string label =
        std::string(maker ? maker : "") + (maker && model ? " " : "") + (model ? model : "");
    s.name = label.empty() ? "Screen " + std::to_string(i + 1) : label;
    s.frame = toRect(geometry);
    s.workArea = toRect(work);
    s.primary = gdk_monitor_is_primary(m);
    screens_.push_back(std::move(s));
  }
  if (!screens_.empty() &&
      std::none_of(screens_.begin(), screens_.end(), [](const Screen& s) { return s.primary; }))
    screens_.front().primary = true;
  fullscreenCheckedAt_ = -1;
}

std::vector<Screen> LinuxPanelWindow::screens() const {
  std::vector<Screen> list = screens_;
  if (auto full = fullscreenWindow()) {
    for (Screen& s : list)
      s.fullscreen = s.frame.contains({full->midX(), full->y + full->h / 2}) &&
                     full->w >= s.frame.w && full->h >= s.frame.h;
  }
  return list;
}

// The frame of the active window when it is in full-screen state (X11 only). Asked at most
// every 0.25 s: the hover poll reads the screens many times a second.
std::optional<Rect> LinuxPanelWindow::fullscreenWindow() const {
  GdkDisplay* display = gtk_widget_get_display(window_);
  if (!X11::isX11(display)) return std::nullopt;
  gint64 now = g_get_monotonic_time();
  if (fullscreenCheckedAt_ >= 0 && now - fullscreenCheckedAt_ < 250000) return fullscreen_;
  fullscreenCheckedAt_ = now;
  fullscreen_.reset();
  if (auto box = X11::fullscreenActiveWindow(display)) {
    double scale = gtk_widget_get_scale_factor(window_);
    fullscreen_ = Rect{box->x / scale, box->y / scale, box->w / scale, box->h / scale};
  }
  return fullscreen_;
}

GdkMonitor* LinuxPanelWindow::monitorAt(const Rect& frame) const {
  GdkDisplay* display = gtk_widget_get_display(window_);
  return gdk_display_get_monitor_at_point(display, int(frame.midX()), int(frame.y + 1));
}

// --- pointer ---

std::optional<Point> LinuxPanelWindow::pointer() const {
  if (kind_ != LinuxSession::Kind::X11) return std::nullopt;
  GdkDevice* device = pointerDevice(window_);
  if (!device) return std::nullopt;
  int x = 0, y = 0;
  gdk_device_get_position(device, nullptr, &x, &y);
  return Point{double(x), double(y)};
}

bool LinuxPanelWindow::primaryButtonDown() const {
  if (kind_ != LinuxSession::Kind::X11) return buttonDown_;
  GdkDevice* device = pointerDevice(window_);
  if (!device) return false;
  GdkWindow* root = gdk_screen_get_root_window(gtk_widget_get_screen(window_));
  GdkModifierType mask{};
  gdk_window_get_device_position(root, device, nullptr, nullptr, &mask);
  return mask & GDK_BUTTON1_MASK;
}

// --- frame ---

void LinuxPanelWindow::setFrame(const Rect& frame, bool animate) {
  // A layer surface with the button held on it has the pointer grabbed and reports positions
  // relative to itself. Moved meanwhile, it would report some relative to the old place and
  // some to the new (the compositor applies new margins a frame later), and the drag would run
  // away: it stays put while the button is down and moves at the drop.
  if (kind_ == LinuxSession::Kind::LayerShell && buttonDown_ && !animate) return;
  if (tick_) {
    gtk_widget_remove_tick_callback(window_, tick_);
    tick_ = 0;
  }
  if (!animate || !gtk_widget_get_mapped(window_)) {
    place(frame);
    return;
  }
  from_ = frame_;
  to_ = frame;
  startedAt_ = 0;
  tick_ = gtk_widget_add_tick_callback(window_, onTick, this, nullptr);
}

gboolean LinuxPanelWindow::onTick(GtkWidget*, GdkFrameClock* clock, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  gint64 now = gdk_frame_clock_get_frame_time(clock);
  if (self->startedAt_ == 0) self->startedAt_ = now;
  double t = double(now - self->startedAt_) / (kAnimationSeconds * 1e6);
  if (t >= 1) {
    self->place(self->to_);
    self->tick_ = 0;
    return G_SOURCE_REMOVE;
  }
  self->place(lerp(self->from_, self->to_, ease(t)));
  return G_SOURCE_CONTINUE;
}

void LinuxPanelWindow::place(const Rect& frame) {
  frame_ = frame;
  int x = int(std::lround(frame.x)), y = int(std::lround(frame.y));
  int w = std::max(1, int(std::lround(frame.w)));
  int h = std::max(1, int(std::lround(frame.h)) - (pixelShort_ ? 1 : 0));
  // A surface whose child has no size never draws.
  gtk_widget_set_size_request(content_, w, h);
  gtk_window_resize(GTK_WINDOW(window_), w, h);
  if (kind_ == LinuxSession::Kind::LayerShell) {
    GtkWindow* win = GTK_WINDOW(window_);
    GdkMonitor* monitor = monitorAt(frame);
    GdkRectangle area{};
    if (monitor) {
      gdk_monitor_get_geometry(monitor, &area);
      gtk_layer_set_monitor(win, monitor);
    }
    gtk_layer_set_margin(win, GTK_LAYER_SHELL_EDGE_LEFT, x - area.x);
    gtk_layer_set_margin(win, GTK_LAYER_SHELL_EDGE_TOP, y - area.y);
  } else {
    gtk_window_move(GTK_WINDOW(window_), x, y);
  }
}

// --- input and visibility ---

void LinuxPanelWindow::setInputRegion(const std::vector<Rect>& rects) {
  bool changed = rects != input_;
  input_ = rects;
  applyShape();
  // The page changes shape with animations over transparent pixels (it grows, its shadow moves,
  // it shrinks): once they end, the whole view is painted afresh.
  if (changed) renewSoon();
}

void LinuxPanelWindow::renewSoon() {
  if (renewTimer_) g_source_remove(renewTimer_);
  renewTimer_ = g_timeout_add(
      kRenewDelayMs,
      +[](gpointer data) -> gboolean {
        auto* self = static_cast<LinuxPanelWindow*>(data);
        self->renewTimer_ = 0;
        self->renewBackingStore();
        return G_SOURCE_REMOVE;
      },
      this);
}

void LinuxPanelWindow::renewBackingStore() {
  pixelShort_ = !pixelShort_;
  place(frame_);
}

void LinuxPanelWindow::applyShape() {
  cairo_region_t* region = cairo_region_create();
  for (const Rect& r : input_) {
    cairo_rectangle_int_t box{int(std::floor(r.x)), int(std::floor(r.y)),
                              int(std::ceil(r.x + r.w) - std::floor(r.x)),
                              int(std::ceil(r.y + r.h) - std::floor(r.y))};
    cairo_region_union_rectangle(region, &box);
  }
  // An empty region lets every click through to the windows below.
  gtk_widget_input_shape_combine_region(window_, region);
  // Without a compositing manager the transparent parts would be drawn black: show only what
  // takes input, which is what the page paints.
  if (!composited_ && kind_ == LinuxSession::Kind::X11)
    gtk_widget_shape_combine_region(window_, region);
  cairo_region_destroy(region);
  // Wayland sends the new input region with the next frame.
  gtk_widget_queue_draw(window_);
}

void LinuxPanelWindow::onRealize(GtkWidget*, gpointer data) {
  static_cast<LinuxPanelWindow*>(data)->applyShape();
}

void LinuxPanelWindow::setRaised(bool raised) {
  if (kind_ == LinuxSession::Kind::LayerShell) {
    // At rest the pill lives in the top layer, which compositors draw below full-screen
    // windows, so it steps aside for a video or a game; open, it goes above everything.
    gtk_layer_set_layer(GTK_WINDOW(window_),
                        raised ? GTK_LAYER_SHELL_LAYER_OVERLAY : GTK_LAYER_SHELL_LAYER_TOP);
    return;
  }
  if (!raised || !gtk_widget_get_realized(window_)) return;
  gdk_window_raise(gtk_widget_get_window(window_));
}

void LinuxPanelWindow::setVisible(bool visible) {
  if (visible == gtk_widget_get_visible(window_)) return;
  if (visible) {
    gtk_widget_show_all(window_);
    place(frame_);
    applyShape();
  } else {
    gtk_widget_hide(window_);
  }
}

// --- focus ---

void LinuxPanelWindow::takeFocus() {
  GtkWindow* w = GTK_WINDOW(window_);
  if (kind_ == LinuxSession::Kind::LayerShell)
    gtk_layer_set_keyboard_mode(w, GTK_LAYER_SHELL_KEYBOARD_MODE_ON_DEMAND);
  GdkDisplay* display = gtk_widget_get_display(window_);
  unsigned long active = X11::activeWindow(display);
  if (active && active != X11::xid(gtk_widget_get_window(window_))) previousFocus_ = active;
  gtk_window_present_with_time(w, GDK_CURRENT_TIME);
  if (GdkWindow* gw = gtk_widget_get_window(window_)) gdk_window_focus(gw, GDK_CURRENT_TIME);
  gtk_widget_grab_focus(content_);
}

void LinuxPanelWindow::releaseFocus() {
  if (kind_ == LinuxSession::Kind::LayerShell) {
    gtk_layer_set_keyboard_mode(GTK_WINDOW(window_), GTK_LAYER_SHELL_KEYBOARD_MODE_NONE);
    return;
  }
  if (!previousFocus_ || !hasFocus()) return;
  // Focus goes back to the window that had it before the panel took it.
  X11::activate(gtk_widget_get_display(window_), previousFocus_);
  previousFocus_ = 0;
}

bool LinuxPanelWindow::hasFocus() const {
  return gtk_window_is_active(GTK_WINDOW(window_));
}

// --- events ---

gboolean LinuxPanelWindow::onDraw(GtkWidget*, cairo_t* cr, gpointer) {
  cairo_save(cr);
  cairo_set_source_rgba(cr, 0, 0, 0, 0);
  cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
  cairo_paint(cr);
  cairo_restore(cr);
  return FALSE;
}

gboolean LinuxPanelWindow::onMotion(GtkWidget*, GdkEventMotion* event, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  if (self->events_.pointer) self->events_.pointer(Point{event->x, event->y});
  return FALSE;
}

gboolean LinuxPanelWindow::onCrossing(GtkWidget*, GdkEventCrossing* event, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  if (event->detail == GDK_NOTIFY_INFERIOR || !self->events_.pointer) return FALSE;
  if (event->type == GDK_LEAVE_NOTIFY)
    self->events_.pointer(std::nullopt);
  else
    self->events_.pointer(Point{event->x, event->y});
  return FALSE;
}

gboolean LinuxPanelWindow::onButton(GtkWidget*, GdkEventButton* event, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  if (event->button != GDK_BUTTON_PRIMARY) return FALSE;
  self->buttonDown_ = event->type == GDK_BUTTON_PRESS;
  if (event->type == GDK_BUTTON_RELEASE && self->events_.buttonReleased)
    self->events_.buttonReleased();
  return FALSE;
}

gboolean LinuxPanelWindow::onKey(GtkWidget*, GdkEventKey* event, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  if (event->keyval == GDK_KEY_Escape && self->events_.escape) self->events_.escape();
  return FALSE;
}

gboolean LinuxPanelWindow::onFocusOut(GtkWidget*, GdkEventFocus*, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  // A global hot key pressed while the panel has the focus is not a loss of focus.
  if (X11::focusWithin(gtk_widget_get_display(self->window_),
                       X11::xid(gtk_widget_get_window(self->window_))))
    return FALSE;
  if (self->events_.focusLost) self->events_.focusLost();
  return FALSE;
}

void LinuxPanelWindow::onMonitorsChanged(GdkScreen*, gpointer data) {
  auto* self = static_cast<LinuxPanelWindow*>(data);
  self->loadScreens();
  if (self->events_.screensChanged) self->events_.screensChanged();
}
