#pragma once
// The panel's behaviour: when it opens and collapses, what holds it open, where it lands after
// a drag, what the page is told and what the page's commands do. Other platforms call this the
// notch controller; Linux screens have no camera notch, so the panel hangs from the top centre
// of its screen instead. It drives the window only through `PanelWindow` and `Desktop`, so
// every decision runs on the loop's clock and can be tested on a fake loop.
//
// Open and closed is the hub's `isOpen`. At rest the window takes input only where the page
// draws; open, it is raised above other windows. Hover opens the panel after a short dwell and
// leaving it collapses the panel 0.1 s later unless a hold keeps it open.

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/capabilities.h"
#include "app/panel_geometry.h"
#include "app/panel_menu.h"
#include "app/panel_ports.h"
#include "app/panel_updates.h"
#include "core/defaults.h"
#include "core/hub.h"
#include "core/loop.h"
#include "voice/delivery.h"

// Switches read from the environment once, at start.
struct PanelOptions {
  bool trace = false;                    // VANTLER_TRACE: hover decisions to ~/.vantler/hover.log
  std::optional<std::string> debugOpen;  // VANTLER_DEBUG_OPEN: open 1.2 s after start
  std::optional<Point> fakeCursor;       // VANTLER_FAKE_CURSOR "x,y": replaces the pointer
  std::optional<double> fakeNotch;       // VANTLER_FAKE_NOTCH: a simulated notch this wide
  std::string demoScreen;                // VANTLER_DEMO_SCREEN: the home screen's key or name
  std::string osRelease = "/etc/os-release";

  static PanelOptions fromEnvironment();
};

// What the panel reaches besides the window. Missing ones get inert stand-ins.
struct PanelServices {
  std::shared_ptr<Voice> voice;
  std::shared_ptr<HotKeys> hotKeys;
  std::function<Json()> usage;         // today's usage for the page ({"today", "models"})
  std::shared_ptr<Delivery> delivery;  // none: dictated text goes to the clipboard
  // What works in this session at start; later changes go through `setCapabilities`.
  Capabilities capabilities = Capabilities::none(false);
  Updater* updates = nullptr;  // the update checks; none in a build without a feed
  // Runs after every push of the state (desktop notifications follow the requests).
  std::function<void()> pushed;
};

class PanelController {
 public:
  // Hover zone around the drawn rectangle: left/right, above, below.
  static constexpr double kClosedSide = 24, kClosedAbove = 8, kClosedBelow = 8;
  static constexpr double kOpenSide = 20, kOpenAbove = 8, kOpenBelow = 16;
  static constexpr double kDwellHome = 0.04;
  static constexpr double kDwellAway = 0.12;
  static constexpr double kHotPoll = 0.03, kHotTolerance = 0.01;
  static constexpr double kSlowPoll = 0.4, kSlowTolerance = 0.15;
  static constexpr double kCollapseAfter = 0.1;
  static constexpr double kPeekFor = 6.0;

  PanelController(Loop& loop, Hub& hub, Defaults& defaults, PanelWindow& window, Desktop& desktop,
                  PageSend send, PanelServices services = {}, PanelOptions options = {});
  ~PanelController();
  PanelController(const PanelController&) = delete;
  PanelController& operator=(const PanelController&) = delete;

  // Starts everything once the window exists: places it, follows the hub, starts the hover
  // poll and the keys. `arriving` marks the first appearance after installation (the page
  // gets "hello").
  void show(bool arriving);
  // The callbacks the window reports through.
  PanelEvents events();

  void open();
  void close();
  void peek();
  void summon();
  void dismissKeys();
  void takeFocus();
  void releaseFocus();
  void toggleTalk();
  void hold(const std::string& reason, bool on);
  void beginDrag();
  void followCursor(std::optional<Point> point);
  void endDrag();
  void evaluateHover();
  void screensChanged();
  void resetPosition();
  // Opens on the settings view / on the walkthrough (menu items).
  void openSettings();
  void showTour();
  void showMenu();
  // The application menu as it stands now, and what choosing one of its actions does.
  std::vector<MenuItem> menu() const;
  void menuChosen(const std::string& action);
  // The user cannot see the panel: its screen shows a full-screen window (and it is not
  // open), or the pointer is on another screen.
  bool outOfSight() const;
  void push();
  // A facility started or stopped working: the page's settings say so at once.
  void setCapabilities(const Capabilities& capabilities);
  const Capabilities& capabilities() const { return services_.capabilities; }
  // A command from the page.
  void handle(const Json& command);
  // The text "copyDiagnostics" puts on the clipboard.
  std::string diagnostics() const;

  bool placedAway() const;
  const std::set<std::string>& holds() const { return holds_; }
  bool dragging() const { return dragging_; }
  bool pollIsHot() const { return hot_; }
  // The glass layout the page last asked for (desktop coordinates); there is no glass effect
  // here, but a window without compositing can shape itself to it.
  const std::vector<Rect>& glassRects() const { return glassRects_; }

 private:
  struct Where {
    std::vector<Screen> screens;
    std::optional<Placement::Placed> placed;
    std::optional<Screen> home;
    const Screen* screen() const { return placed ? &placed->screen : home ? &*home : nullptr; }
  };
  Where where() const;
  Rect stageRect() const;
  Rect drawnRect() const;
  std::optional<Point> cursor() const;
  bool shouldHide(const Where& w) const;
  // Brings window visibility and input region in line with the state.
  void refresh() { refresh(where()); }
  void refresh(const Where& w);
  void setPoll(bool hot);
  void tick();
  void relayPointer(std::optional<Point> point);
  // At rest, with no display chosen, the panel goes to the screen the pointer is on.
  void followPointer(Point p);
  // The pointer is outside the hover zone: no dwell runs.
  void leaveZone();
  void scheduleCollapse();
  void cancelCollapse();
  void windowPointer(std::optional<Point> inWindow);
  void talkUpdate(const std::string& text, bool final, double level);
  void talkError(const std::string& message);
  void sendTalk(const std::string& state, const std::string& text);
  // Final dictated text that no reply window takes: pasted where the user types, otherwise
  // left on the clipboard with a notice.
  void deliver(const std::string& text);
  void showCopied(const std::string& text);
  Json geo() const;
  void trace(const std::string& message) const;
  // Runs `task` later unless the controller is gone by then.
  Loop::TaskId later(double seconds, std::function<void(PanelController&)> task);

  Loop& loop_;
  Hub& hub_;
  Defaults& defaults_;
  PanelWindow& window_;
  Desktop& desktop_;
  PageSend send_;
  PanelServices services_;
  PanelOptions options_;
  std::string traceFile_;

  bool shown_ = false;
  bool arriving_ = false;
  Rect drawn_{308, 3, 104, 26};  // the page's resting pill until it reports its own
  std::vector<Rect> glassRects_;
  bool dragging_ = false;
  bool draggedOnce_ = false;
  std::set<std::string> holds_;
  std::optional<Loop::TaskId> poll_;
  bool hot_ = false;
  std::optional<double> insideSince_;
  std::optional<Loop::TaskId> dwellWork_;
  std::string pointerScreen_;  // the key of the screen the pointer was last on at rest
  std::optional<Loop::TaskId> collapseWork_;
  std::optional<Loop::TaskId> peekWork_;
  std::optional<Point> lastPointer_;
  Json lastState_;                     // the last "state" sent to the page
  std::optional<Point> eventPointer_;  // from the window's own events (desktop coordinates)
  bool raised_ = false;
  bool globalPointer_ = true;  // the desktop reports the pointer anywhere (not on Wayland)
  bool holdingTalk_ = false;
  std::optional<bool> visible_;
  std::optional<std::vector<Rect>> inputRegion_;
  std::shared_ptr<PanelController*> self_;
};
