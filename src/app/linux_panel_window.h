#pragma once
// The panel's window on the Linux desktop. On X11: an undecorated, keep-above, sticky dock
// window with an RGBA visual whose input shape is what the page paints, so clicks elsewhere
// reach the windows below. On Wayland with layer-shell: an overlay surface anchored to the
// top-left of its monitor, placed by margins, whose pointer events stand in for the global
// pointer Wayland does not give.

#include <gtk/gtk.h>

#include <optional>
#include <string>
#include <vector>

#include "app/linux_session.h"
#include "app/panel_ports.h"

class LinuxPanelWindow final : public PanelWindow {
 public:
  // The drop animation's length and curve (a slight overshoot).
  static constexpr double kAnimationSeconds = 0.28;
  static constexpr guint kRenewDelayMs = 350;

  // `content` (the page's view) fills the window.
  LinuxPanelWindow(GtkApplication* app, GtkWidget* content, LinuxSession::Kind kind);
  ~LinuxPanelWindow() override;
  LinuxPanelWindow(const LinuxPanelWindow&) = delete;
  LinuxPanelWindow& operator=(const LinuxPanelWindow&) = delete;

  // Where the window reports pointer, button, key and screen changes.
  void setEvents(PanelEvents events) { events_ = std::move(events); }

  std::vector<Screen> screens() const override;
  std::optional<Point> pointer() const override;
  bool primaryButtonDown() const override;
  void setFrame(const Rect& frame, bool animate) override;
  Rect frame() const override { return frame_; }
  void setInputRegion(const std::vector<Rect>& rects) override;
  void setRaised(bool raised) override;
  void setVisible(bool visible) override;
  void takeFocus() override;
  void releaseFocus() override;
  bool hasFocus() const override;

  // The page changes over transparent pixels (an animation, a theme): without compositing
  // WebKit leaves their old colours at the antialiased edges, so shortly after the whole view
  // is painted afresh.
  void renewSoon();

  GtkWindow* window() const { return GTK_WINDOW(window_); }
  // How the window is made, one line per choice.
  std::vector<std::string> mechanisms() const;

 private:
  void place(const Rect& frame);
  void applyShape();
  void renewBackingStore();
  void loadScreens();
  std::optional<Rect> fullscreenWindow() const;
  GdkMonitor* monitorAt(const Rect& frame) const;

  static gboolean onDraw(GtkWidget* widget, cairo_t* cr, gpointer self);
  static gboolean onMotion(GtkWidget* widget, GdkEventMotion* event, gpointer self);
  static gboolean onCrossing(GtkWidget* widget, GdkEventCrossing* event, gpointer self);
  static gboolean onButton(GtkWidget* widget, GdkEventButton* event, gpointer self);
  static gboolean onKey(GtkWidget* widget, GdkEventKey* event, gpointer self);
  static gboolean onFocusOut(GtkWidget* widget, GdkEventFocus* event, gpointer self);
  static void onMonitorsChanged(GdkScreen* screen, gpointer self);
  static void onRealize(GtkWidget* widget, gpointer self);
  static gboolean onTick(GtkWidget* widget, GdkFrameClock* clock, gpointer self);

  GtkWidget* window_ = nullptr;
  GtkWidget* content_ = nullptr;
  LinuxSession::Kind kind_;
  PanelEvents events_;
  Rect frame_{0, 0, 720, 640};
  std::vector<Rect> input_;
  std::vector<Screen> screens_;
  bool composited_ = true;
  bool buttonDown_ = false;          // tracked from our own events where there is no global pointer
  unsigned long previousFocus_ = 0;  // the X window that had focus before the panel took it

  // Without WebKit's compositing the view draws each update over its old pixels, so where the
  // page turns (partly) transparent the old content stays; a size change gives it a new
  // backing store, painted whole. After the page changes shape, the view's height alternates
  // between the frame's and a pixel less.
  guint renewTimer_ = 0;
  bool pixelShort_ = false;

  // The drop animation.
  guint tick_ = 0;
  Rect from_, to_;
  gint64 startedAt_ = 0;

  mutable gint64 fullscreenCheckedAt_ = -1;
  mutable std::optional<Rect> fullscreen_;
};
