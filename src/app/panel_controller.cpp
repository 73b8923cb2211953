#include "app/panel_controller.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

#include <glib.h>

#include "core/files.h"
#include "core/prefs.h"
#include "integrations/installers.h"
#include "version.h"

namespace {

// A stand-in for a desktop without global hot keys yet.
class NoHotKeys final : public HotKeys {};

std::string describe(const std::optional<Point>& p) {
  if (!p) return "none";
  char text[64];
  std::snprintf(text, sizeof text, "%.0f,%.0f", p->x, p->y);
  return text;
}

// The hover zone: the drawn rectangle with a margin, wider below while open.
Rect hoverZone(const Rect& drawn, bool open) {
  using C = PanelController;
  return open ? drawn.grown(C::kOpenSide, C::kOpenAbove, C::kOpenSide, C::kOpenBelow)
              : drawn.grown(C::kClosedSide, C::kClosedAbove, C::kClosedSide, C::kClosedBelow);
}

// The part of `r` inside the window.
Rect clipToStage(const Rect& r) {
  double x0 = std::max(r.minX(), 0.0), y0 = std::max(r.minY(), 0.0);
  double x1 = std::min(r.maxX(), Geometry::kStageWidth);
  double y1 = std::min(r.maxY(), Geometry::kStageHeight);
  return {x0, y0, std::max(x1 - x0, 0.0), std::max(y1 - y0, 0.0)};
}

}  // namespace

PanelController::PanelController(Loop& loop, Hub& hub, Defaults& defaults, PanelWindow& window,
                                 Desktop& desktop, PageSend send, PanelServices services,
                                 PanelOptions options)
    : loop_(loop),
      hub_(hub),
      defaults_(defaults),
      window_(window),
      desktop_(desktop),
      send_(std::move(send)),
      services_(std::move(services)),
      options_(std::move(options)),
      self_(std::make_shared<PanelController*>(this)) {
  if (!services_.voice) services_.voice = std::make_shared<NoVoice>();
  if (!services_.hotKeys) services_.hotKeys = std::make_shared<NoHotKeys>();
  if (!services_.usage)
    services_.usage = [] { return Json{{"today", 0}, {"models", Json::array()}}; };
  std::string home = hub_.home().empty() ? Files::home() : hub_.home();
  traceFile_ = home + "/.vantler/hover.log";
}

PanelController::~PanelController() {
  for (auto& task : {poll_, collapseWork_, peekWork_, dwellWork_})
    if (task) loop_.cancel(*task);
  if (shown_) {
    hub_.onChange = [] {};
    hub_.onAttention = [] {};
    hub_.userLooking = [] { return false; };
  }
  services_.voice->onUpdate = nullptr;
  services_.voice->onError = nullptr;
  HotKeys& keys = *services_.hotKeys;
  keys.onOpen = keys.onTalk = keys.onTalkStart = keys.onTalkEnd = nullptr;
}

Loop::TaskId PanelController::later(double seconds, std::function<void(PanelController&)> task) {
  std::weak_ptr<PanelController*> weak = self_;
  return loop_.after(seconds, [weak, task = std::move(task)] {
    if (auto self = weak.lock()) task(**self);
  });
}

void PanelController::show(bool arriving) {
  arriving_ = arriving;
  shown_ = true;
  globalPointer_ = options_.fakeCursor || window_.pointer();
  window_.setFrame(stageRect(), false);
  window_.setRaised(false);
  hub_.onChange = [this] { push(); };
  // The user chose to look: the panel is open and not merely peeking by itself.
  hub_.userLooking = [this] { return hub_.isOpen() && !holds_.count("peek"); };
  hub_.onAttention = [this] {
    if (Prefs::autoOpen(defaults_))
      peek();
    else
      push();
  };
  setPoll(false);

  HotKeys& keys = *services_.hotKeys;
  keys.onOpen = [this] { summon(); };
  keys.onTalk = [this] { toggleTalk(); };
  keys.onTalkStart = [this] {
    holdingTalk_ = true;
    toggleTalk();
  };
  keys.onTalkEnd = [this] {
    if (!holdingTalk_) return;
    holdingTalk_ = false;
    if (services_.voice->listening()) services_.voice->stop();
  };
  services_.voice->onUpdate = [this](const std::string& text, bool final, double level) {
    talkUpdate(text, final, level);
  };
  services_.voice->onError = [this](const std::string& message) { talkError(message); };

  if (options_.debugOpen) {
    later(1.2, [](PanelController& c) {
      c.holds_.insert("debug");
      c.open();
      if (c.options_.debugOpen == "settings") c.send_("openSettings", Json::object());
    });
  }
  refresh();
}

PanelEvents PanelController::events() {
  std::weak_ptr<PanelController*> weak = self_;
  auto guarded = [weak](auto action) {
    return [weak, action](auto&&... args) {
      if (auto self = weak.lock()) action(**self, args...);
    };
  };
  PanelEvents e;
  e.pointer = guarded([](PanelController& c, std::optional<Point> p) { c.windowPointer(p); });
  e.buttonReleased = guarded([](PanelController& c) { c.endDrag(); });
  e.screensChanged = guarded([](PanelController& c) { c.screensChanged(); });
  e.themeChanged =
      guarded([](PanelController& c) { c.later(0.15, [](PanelController& c) { c.push(); }); });
  e.escape = guarded([](PanelController& c) {
    if (c.hub_.isOpen()) c.send_("escape", Json::object());
  });
  e.focusLost = guarded([](PanelController& c) {
    if (c.holds_.count("keys")) c.dismissKeys();
  });
  return e;
}

// --- where things are ---

PanelController::Where PanelController::where() const {
  Where w;
  w.screens = window_.screens();
  w.placed = Placement::current(defaults_, w.screens);
  std::string chosen = options_.demoScreen;
  if (chosen.empty() && Prefs::screen(defaults_) != "auto") chosen = Prefs::screen(defaults_);
  w.home = Geometry::homeScreen(w.screens, chosen, pointerScreen_);
  return w;
}

bool PanelController::placedAway() const {
  return Placement::current(defaults_, window_.screens()).has_value();
}

Rect PanelController::stageRect() const {
  Where w = where();
  return Geometry::stageRect(w.placed, w.home);
}

Rect PanelController::drawnRect() const {
  return Geometry::drawnRect(drawn_, shown_ ? window_.frame() : stageRect());
}

std::optional<Point> PanelController::cursor() const {
  if (options_.fakeCursor) return options_.fakeCursor;
  if (auto p = window_.pointer()) return p;
  return eventPointer_;
}

// Over a full-screen window the resting panel steps aside until something needs the user.
bool PanelController::shouldHide(const Where& w) const {
  const Screen* screen = w.screen();
  return screen && screen->fullscreen && !hub_.isOpen() && !dragging_ && holds_.empty() &&
         hub_.queue().empty();
}

void PanelController::refresh(const Where& w) {
  if (!shown_) return;
  bool visible = !shouldHide(w);
  if (visible_ != visible) {
    visible_ = visible;
    window_.setVisible(visible);
  }
  // Without a global pointer the window only learns of the pointer inside its input region,
  // so the hover zone around the drawn rectangle has to be part of it.
  std::vector<Rect> region{drawn_};
  if (!globalPointer_) region.push_back(clipToStage(hoverZone(drawn_, hub_.isOpen())));
  if (inputRegion_ != region) {
    inputRegion_ = region;
    window_.setInputRegion(region);
  }
}

// --- hover ---

void PanelController::setPoll(bool hot) {
  if (poll_ && hot == hot_) return;
  if (poll_) loop_.cancel(*poll_);
  hot_ = hot;
  poll_ = loop_.every(hot ? kHotPoll : kSlowPoll, hot ? kHotTolerance : kSlowTolerance,
                      [this] { tick(); });
}

void PanelController::tick() {
  if (!dragging_) {
    evaluateHover();
  } else if (!window_.primaryButtonDown()) {
    endDrag();
  } else {
    followCursor(std::nullopt);
  }
}

void PanelController::windowPointer(std::optional<Point> inWindow) {
  if (inWindow) {
    Rect f = window_.frame();
    eventPointer_ = Point{f.minX() + inWindow->x, f.minY() + inWindow->y};
  } else {
    eventPointer_.reset();
  }
  if (dragging_)
    followCursor(std::nullopt);
  else
    evaluateHover();
}

void PanelController::evaluateHover() {
  if (!shown_ || dragging_) return;
  std::optional<Point> p = cursor();
  bool opened = hub_.isOpen();
  if (p && !opened) followPointer(*p);
  Where w = where();
  const Screen* screen = w.screen();
  if (!screen) return;
  refresh(w);
  if (visible_ == false) {
    leaveZone();
    setPoll(false);
    return;
  }
  bool away = w.placed.has_value();
  Rect drawn = drawnRect();

  if (p && hoverZone(drawn, opened).contains(*p)) {
    setPoll(true);
    relayPointer(opened ? p : std::nullopt);
    cancelCollapse();
    holds_.erase("peek");
    if (opened) return;
    if (away && !raised_) {
      raised_ = true;
      window_.setRaised(true);
    }
    double now = loop_.uptime();
    if (!insideSince_) insideSince_ = now;
    double left = *insideSince_ + (away ? kDwellAway : kDwellHome) - now;
    if (left <= 1e-9) {
      open();
    } else if (!dwellWork_) {
      // The panel opens the moment the dwell is over, not at the poll's next turn.
      dwellWork_ = later(left, [](PanelController& c) {
        c.dwellWork_.reset();
        c.evaluateHover();
      });
    }
    return;
  }

  // Outside: poll fast only while the pointer is near enough to come in soon.
  bool near = p && (away ? drawn.grown(120, 120, 120, 120).contains(*p)
                         : p->y < screen->frame.minY() + 120);
  setPoll(opened || near);
  relayPointer(std::nullopt);
  leaveZone();
  if (!opened) {
    if (away && raised_) {
      raised_ = false;
      window_.setRaised(false);
    }
    return;
  }
  if (!collapseWork_ && holds_.empty()) scheduleCollapse();
}

void PanelController::followPointer(Point p) {
  if (!globalPointer_ || !options_.demoScreen.empty() || Prefs::screen(defaults_) != "auto") return;
  std::vector<Screen> screens = window_.screens();
  // Still on its screen (neighbouring screens share their edge): nothing moves.
  for (const Screen& s : screens)
    if (s.key == pointerScreen_ && s.frame.contains(p)) return;
  for (const Screen& s : screens) {
    if (!s.frame.contains(p)) continue;
    pointerScreen_ = s.key;
    window_.setFrame(stageRect(), false);
    push();
    return;
  }
}

void PanelController::leaveZone() {
  insideSince_.reset();
  if (dwellWork_) loop_.cancel(*dwellWork_);
  dwellWork_.reset();
}

void PanelController::scheduleCollapse() {
  collapseWork_ = later(kCollapseAfter, [](PanelController& c) {
    c.collapseWork_.reset();
    c.close();
  });
}

void PanelController::cancelCollapse() {
  if (collapseWork_) loop_.cancel(*collapseWork_);
  collapseWork_.reset();
}

void PanelController::relayPointer(std::optional<Point> point) {
  Point page{-1, -1};
  if (point) {
    Rect f = window_.frame();
    page = {std::round(point->x - f.minX()), std::round(point->y - f.minY())};
  }
  if (lastPointer_ == page) return;
  lastPointer_ = page;
  send_("pointer", {{"x", page.x}, {"y", page.y}});
}

// --- open and closed ---

void PanelController::open() {
  if (hub_.isOpen()) return;
  trace("OPEN cursor=" + describe(cursor()));
  raised_ = true;
  window_.setRaised(true);
  hub_.setOpen(true);
  refresh();
}

void PanelController::close() {
  if (!hub_.isOpen() || !holds_.empty()) return;
  trace("CLOSE cursor=" + describe(cursor()));
  releaseFocus();
  hub_.setOpen(false);
  // The page animates the collapse; the window stays on top until it is done.
  later(0.5, [](PanelController& c) {
    if (c.hub_.isOpen() || !c.raised_) return;
    c.raised_ = false;
    c.window_.setRaised(false);
  });
  refresh();
}

void PanelController::peek() {
  if (placedAway()) {
    push();
    return;
  }
  holds_.insert("peek");
  open();
  if (peekWork_) loop_.cancel(*peekWork_);
  peekWork_ = later(kPeekFor, [](PanelController& c) {
    c.peekWork_.reset();
    c.holds_.erase("peek");
    c.evaluateHover();
  });
}

void PanelController::hold(const std::string& reason, bool on) {
  if (on)
    holds_.insert(reason);
  else
    holds_.erase(reason);
  refresh();
}

// --- keyboard and voice ---

void PanelController::summon() {
  if (hub_.isOpen() && holds_.count("keys")) {
    dismissKeys();
    return;
  }
  holds_.insert("keys");
  open();
  window_.takeFocus();
  send_("keys", {{"on", true}});
}

void PanelController::dismissKeys() {
  if (services_.voice->listening()) {
    services_.voice->cancel();
    holds_.erase("talking");
    sendTalk("off", "");
  }
  holds_.erase("keys");
  send_("keys", {{"on", false}});
  releaseFocus();
  evaluateHover();
}

void PanelController::takeFocus() {
  holds_.insert("typing");
  window_.takeFocus();
}

void PanelController::releaseFocus() {
  holds_.erase("typing");
  if (window_.hasFocus()) window_.releaseFocus();
}

void PanelController::toggleTalk() {
  Voice& voice = *services_.voice;
  if (voice.listening()) {
    voice.stop();
    return;
  }
  if (!hub_.isOpen() || !holds_.count("keys")) summon();
  holds_.insert("talking");
  voice.start();
}

void PanelController::sendTalk(const std::string& state, const std::string& text) {
  send_("talk", {{"state", state}, {"text", text}});
}

void PanelController::talkUpdate(const std::string& text, bool final, double level) {
  if (!final) {
    send_("talk",
          {{"state", "listening"}, {"text", text}, {"level", level}, {"hold", holdingTalk_}});
    return;
  }
  send_("talk", {{"state", "polishing"}, {"text", text}, {"level", 0}, {"hold", holdingTalk_}});
  // The final text arrives cleaned and punctuated (the Voice implementation does both).
  holds_.erase("talking");
  // Only a reply window can take it in the page; with none waiting it is delivered below.
  const auto& queue = hub_.queue();
  if (std::any_of(queue.begin(), queue.end(),
                  [](const Session* s) { return s->pending->is<Pending::Reply>(); })) {
    send_("talk", {{"state", "done"}, {"text", text}, {"level", 0}});
    return;
  }
  sendTalk("off", "");
  dismissKeys();
  holds_.clear();
  close();
  if (text.empty()) return;
  later(0.15, [text](PanelController& c) { c.deliver(text); });
}

void PanelController::deliver(const std::string& text) {
  Delivery* delivery = services_.delivery.get();
  if (delivery && delivery->typingSomewhere()) {
    std::weak_ptr<PanelController*> weak = self_;
    delivery->paste(text, [weak, text](bool pasted) {
      auto self = weak.lock();
      if (self && !pasted) (*self)->showCopied(text);  // already on the clipboard
    });
    return;
  }
  desktop_.copyText(text);
  showCopied(text);
}

void PanelController::showCopied(const std::string& text) {
  trace("talk copied");
  sendTalk("copied", text);
  holds_.insert("copied");
  open();
  later(3.5, [](PanelController& c) {
    c.holds_.erase("copied");
    c.sendTalk("off", "");
    c.evaluateHover();
  });
}

void PanelController::talkError(const std::string& message) {
  trace("talk error: " + message);
  services_.hotKeys->log("talk error: " + message);
  g_message("Vantler talk error: %s", message.c_str());
  holds_.erase("talking");
  sendTalk("error", message);
}

// --- dragging ---

void PanelController::beginDrag() {
  if (dragging_ || !shown_) return;
  dragging_ = true;
  holds_.insert("drag");
  cancelCollapse();
  hub_.setOpen(false);
  followCursor(std::nullopt);
  if (!window_.primaryButtonDown()) endDrag();
}

void PanelController::followCursor(std::optional<Point> point) {
  if (!dragging_) return;
  if (!point) point = cursor();
  if (!point) return;
  window_.setFrame(Geometry::dragFrame(*point), false);
  if (draggedOnce_) return;
  draggedOnce_ = true;
  push();
}

void PanelController::endDrag() {
  if (!dragging_) return;
  dragging_ = false;
  draggedOnce_ = false;
  holds_.erase("drag");
  Where w = where();
  if (std::optional<Point> p = cursor()) {
    Geometry::Drop d = Geometry::drop(*p, w.screens, w.placed, w.home);
    trace("DROP " + describe(p) + (d.home ? " home" : " " + d.edge));
    if (d.home)
      Placement::clear(defaults_);
    else if (d.screen)
      Placement::save(defaults_, *d.screen, d.cx, d.top, d.edge);
  }
  window_.setFrame(stageRect(), true);
  raised_ = false;
  window_.setRaised(false);
  push();
}

void PanelController::screensChanged() {
  if (dragging_) return;
  window_.setFrame(stageRect(), false);
  push();
}

void PanelController::resetPosition() {
  Placement::clear(defaults_);
  window_.setFrame(stageRect(), false);
  push();
}

void PanelController::openSettings() {
  open();
  send_("openSettings", Json::object());
}

void PanelController::showTour() {
  holds_.insert("tour");
  open();
  send_("tour", Json::object());
}

void PanelController::showMenu() {
  holds_.insert("menu");
  std::weak_ptr<PanelController*> weak = self_;
  desktop_.showMenu([weak] {
    if (auto self = weak.lock()) (*self)->hold("menu", false);
  });
}

std::vector<MenuItem> PanelController::menu() const {
  MenuFacts f;
  f.version = Version::kVersion;
  std::vector<const Session*> shown = hub_.visible();
  f.sessions = shown.size();
  f.waiting = hub_.queue().size();
  f.placedAway = placedAway();
  const Date now = hub_.now();
  f.anyFinished = std::any_of(shown.begin(), shown.end(),
                              [now](const Session* s) { return Hub::isFinished(*s, now); });
  f.claudeHooks = HookInstaller::isInstalled();
  f.cursorAvailable = CursorHooks::available();
  f.cursorHooks = f.cursorAvailable && CursorHooks::isInstalled();
  if (services_.updates) f.newerVersion = services_.updates->newerVersion();
  const Json settings = Prefs::json(defaults_);
  for (const Json& host : JsonField::array(JsonField::object(settings, "remotes"), "hosts")) {
    std::string state = JsonField::str(host, "busy");
    if (state.empty()) state = JsonField::str(host, "state");
    f.remotes.push_back(JsonField::str(host, "name") + (state.empty() ? "" : ": " + state));
  }
  return AppMenu::build(f);
}

void PanelController::menuChosen(const std::string& action) {
  namespace A = AppMenu::Action;
  // Connecting reports its own failures; the menu only shows the outcome.
  auto toggle = [this](bool installed, void (*install)(), void (*uninstall)()) {
    try {
      installed ? uninstall() : install();
    } catch (const std::exception& e) {
      g_warning("Vantler: %s", e.what());
    }
    push();
  };
  if (action == A::open) {
    summon();
  } else if (action == A::settings) {
    openSettings();
  } else if (action == A::home) {
    resetPosition();
  } else if (action == A::clear) {
    hub_.clearFinished();
  } else if (action == A::claude) {
    toggle(HookInstaller::isInstalled(), HookInstaller::install, HookInstaller::uninstall);
  } else if (action == A::cursor) {
    toggle(CursorHooks::isInstalled(), CursorHooks::install, CursorHooks::uninstall);
  } else if (action == A::tour) {
    showTour();
  } else if (action == A::updates) {
    // The settings show how the check goes.
    if (services_.updates) services_.updates->checkNow();
    openSettings();
  } else if (action == A::download) {
    if (services_.updates && !services_.updates->link().empty())
      desktop_.openUri(services_.updates->link());
  } else if (action == A::quit) {
    desktop_.quit();
  }
}

bool PanelController::outOfSight() const {
  Where w = where();
  const Screen* screen = w.screen();
  if (!screen) return false;
  if (screen->fullscreen && !hub_.isOpen()) return true;
  std::optional<Point> p = cursor();
  return p && !screen->frame.contains(*p);
}

// --- the page ---

Json PanelController::geo() const {
  Where w = where();
  Rect stage = Geometry::stageRect(w.placed, w.home);
  double notch = Geometry::notchWidth(options_.fakeNotch);
  return {{"notchWidth", notch},
          {"strip", Geometry::strip(w.home, options_.fakeNotch.has_value())},
          {"shape", Geometry::shape(w.placed.has_value(), Prefs::shape(defaults_), notch)},
          {"stageWidth", Geometry::kStageWidth},
          {"stageHeight", Geometry::kStageHeight},
          {"away", w.placed.has_value()},
          {"anchor", Geometry::anchor(w.placed)},
          {"dragging", dragging_},
          {"dx", Geometry::dx(w.placed, stage)},
          {"edge", w.placed ? w.placed->edge : ""},
          {"glass", false},
          {"glassAvailable", false},
          {"theme", Prefs::resolvedTheme(defaults_, desktop_.prefersDark())}};
}

void PanelController::push() {
  Json state = hub_.snapshot();
  state["geo"] = geo();
  state["capabilities"] = services_.capabilities.json();
  Json screens = Json::array();
  for (const Screen& s : window_.screens()) screens.push_back({{"key", s.key}, {"name", s.name}});
  state["screens"] = std::move(screens);
  state["settings"]["optionTapReady"] = services_.capabilities.altTap.ready;
  state["settings"]["update"] =
      services_.updates ? services_.updates->status() : Json{{"state", "off"}};
  if (options_.trace) state["trace"] = true;
  // The page re-renders on every state: an unchanged one is not sent again.
  if (state != lastState_) {
    lastState_ = state;
    send_("state", std::move(state));
  }
  refresh();
  if (services_.pushed) services_.pushed();
}

void PanelController::setCapabilities(const Capabilities& capabilities) {
  if (capabilities == services_.capabilities) return;
  services_.capabilities = capabilities;
  push();
}

void PanelController::trace(const std::string& message) const {
  if (!options_.trace) return;
  Files::makeDirs(Files::parent(traceFile_), 0700);
  std::ofstream out(traceFile_, std::ios::app);
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%.3f ", loop_.uptime());
  out << stamp << message << '\n';
}
