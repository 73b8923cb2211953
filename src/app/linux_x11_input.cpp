#include "app/linux_x11_input.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <gdk/gdkx.h>
#include <glib-unix.h>

#include "voice/option_tap.h"

namespace X11Input {
namespace {

Display* gdkDisplay() {
  GdkDisplay* display = gdk_display_get_default();
  return display && GDK_IS_X11_DISPLAY(display) ? gdk_x11_display_get_xdisplay(display) : nullptr;
}

// One CARDINAL or WINDOW property value, 0 when absent.
unsigned long property(Display* d, Window w, const char* name, Atom type) {
  Atom actual;
  int format;
  unsigned long count = 0, after;
  unsigned char* data = nullptr;
  unsigned long value = 0;
  if (XGetWindowProperty(d, w, XInternAtom(d, name, False), 0, 1, False, type, &actual, &format,
                         &count, &after, &data) == Success &&
      data && count == 1 && format == 32)
    value = *reinterpret_cast<unsigned long*>(data);
  if (data) XFree(data);
  return value;
}

}  // namespace

struct AltWatch::Impl {
  enum class Kind { alt, modifier, ignored, other };

  explicit Impl(OptionTap& tap) : tap(tap) {
    GdkDisplay* gdk = gdk_display_get_default();
    display = XOpenDisplay(gdk ? gdk_display_get_name(gdk) : nullptr);
    if (!display) {
      why = "The X display could not be opened a second time.";
      return;
    }
    int event = 0, error = 0, major = 2, minor = 2;  // 2.1 and later: raw events during grabs too
    if (!XQueryExtension(display, "XInputExtension", &opcode, &event, &error) ||
        XIQueryVersion(display, &major, &minor) != Success) {
      why = "The X server has no XInput 2, which the Alt gesture needs.";
      return;
    }
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawKeyPress);
    XISetMask(bits, XI_RawKeyRelease);
    XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
    XISelectEvents(display, DefaultRootWindow(display), &mask, 1);
    XFlush(display);
    source = g_unix_fd_add(ConnectionNumber(display), G_IO_IN, readable, this);
    ready = true;
  }
  ~Impl() {
    if (source) g_source_remove(source);
    if (display) XCloseDisplay(display);
  }

  Kind kind(int keycode) const {
    switch (XkbKeycodeToKeysym(display, static_cast<KeyCode>(keycode), 0, 0)) {
      case XK_Alt_L:
      case XK_Alt_R:
        return Kind::alt;
      case XK_Shift_L:
      case XK_Shift_R:
      case XK_Control_L:
      case XK_Control_R:
      case XK_Super_L:
      case XK_Super_R:
      case XK_Hyper_L:
      case XK_Hyper_R:
      case XK_Meta_L:
      case XK_Meta_R:
      case XK_ISO_Level3_Shift:
      case XK_Mode_switch:
        return Kind::modifier;
      case XK_Caps_Lock:
      case XK_Num_Lock:
        return Kind::ignored;
      default:
        return Kind::other;
    }
  }

  void key(int keycode, bool pressed) {
    switch (kind(keycode)) {
      case Kind::alt:
        pressed ? tap.altPressed() : tap.altReleased();
        break;
      case Kind::modifier:
        pressed ? tap.modifierPressed() : tap.modifierReleased();
        break;
      case Kind::other:
        if (pressed) tap.keyPressed();
        break;
      case Kind::ignored:
        break;
    }
  }

  static gboolean readable(int, GIOCondition, gpointer data) {
    auto* self = static_cast<Impl*>(data);
    Display* d = self->display;
    while (XPending(d)) {
      XEvent event;
      XNextEvent(d, &event);
      XGenericEventCookie& cookie = event.xcookie;
      if (cookie.type != GenericEvent || cookie.extension != self->opcode ||
          !XGetEventData(d, &cookie))
        continue;
      auto* raw = static_cast<XIRawEvent*>(cookie.data);
      if (self->listening) self->key(raw->detail, cookie.evtype == XI_RawKeyPress);
      XFreeEventData(d, &cookie);
    }
    return G_SOURCE_CONTINUE;
  }

  OptionTap& tap;
  Display* display = nullptr;
  int opcode = 0;
  guint source = 0;
  bool ready = false;
  bool listening = false;
  std::string why;
};

AltWatch::AltWatch(OptionTap& tap) : impl_(std::make_unique<Impl>(tap)) {}
AltWatch::~AltWatch() = default;
bool AltWatch::ready() const {
  return impl_->ready;
}
const std::string& AltWatch::why() const {
  return impl_->why;
}
void AltWatch::listen(bool on) {
  impl_->listening = on;
}

Focus activeWindow() {
  Focus focus;
  Display* d = gdkDisplay();
  if (!d) return focus;
  Window w = property(d, DefaultRootWindow(d), "_NET_ACTIVE_WINDOW", XA_WINDOW);
  if (!w) return focus;
  gdk_x11_display_error_trap_push(gdk_display_get_default());
  XClassHint hint{};
  if (XGetClassHint(d, w, &hint)) {
    if (hint.res_class) focus.app = hint.res_class;
    XFree(hint.res_name);
    XFree(hint.res_class);
  }
  focus.pid = static_cast<int>(property(d, w, "_NET_WM_PID", XA_CARDINAL));
  gdk_x11_display_error_trap_pop_ignored(gdk_display_get_default());
  return focus;
}

bool typePaste(bool shift) {
  Display* d = gdkDisplay();
  int event, error, major, minor;
  if (!d || !XTestQueryExtension(d, &event, &error, &major, &minor)) return false;
  KeyCode control = XKeysymToKeycode(d, XK_Control_L);
  KeyCode shiftKey = XKeysymToKeycode(d, XK_Shift_L);
  KeyCode v = XKeysymToKeycode(d, XK_v);
  if (!control || !v || (shift && !shiftKey)) return false;
  XTestFakeKeyEvent(d, control, True, CurrentTime);
  if (shift) XTestFakeKeyEvent(d, shiftKey, True, CurrentTime);
  XTestFakeKeyEvent(d, v, True, CurrentTime);
  XTestFakeKeyEvent(d, v, False, CurrentTime);
  if (shift) XTestFakeKeyEvent(d, shiftKey, False, CurrentTime);
  XTestFakeKeyEvent(d, control, False, CurrentTime);
  XFlush(d);
  return true;
}

}  // namespace X11Input
