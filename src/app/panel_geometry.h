#pragma once
// Where the panel sits. At rest it hangs from the top centre of its home screen; after the user
// drags it away it sits at a remembered place on any screen. `Placement` stores that place per
// screen in the defaults store; `Geometry` turns it into the panel's frame and into what the
// page needs to draw its resting strip.
//
// Desktop coordinates: origin at the top-left, y growing downwards. "top" in a placement is
// the distance of the panel's top line below the screen's top edge.

#include <optional>
#include <string>
#include <vector>

#include "app/panel_ports.h"
#include "core/defaults.h"

namespace Placement {

struct Placed {
  Screen screen;
  double cx = 0;     // the panel centre, from the screen's left edge
  double top = 0;    // the panel's top line, below the screen's top edge
  std::string edge;  // "left" or "right" when docked against a side, else empty
};

// The stored placement when its screen is attached, else nothing (the panel is at home).
std::optional<Placed> current(const Defaults& defaults, const std::vector<Screen>& screens);
// Remembers the place for this screen and makes it current.
void save(Defaults& defaults, const Screen& screen, double cx, double top, const std::string& edge);
// Back to the top centre of the home screen; each screen's last place stays remembered.
void clear(Defaults& defaults);

}  // namespace Placement

namespace Geometry {

inline constexpr double kStageWidth = 720;
inline constexpr double kStageHeight = 640;

// The screen the panel uses when not placed away: the one `chosen` names (key or name) when
// attached, else the one with the key `pointerScreen`, else the primary monitor, else the first.
std::optional<Screen> homeScreen(const std::vector<Screen>& screens, const std::string& chosen = {},
                                 const std::string& pointerScreen = {});

// The panel frame, always 720 × 640.
Rect stageRect(const std::optional<Placement::Placed>& placed, const std::optional<Screen>& home);
// "bottom" when a placed panel sits in the lower half of its screen (it grows upwards).
std::string anchor(const std::optional<Placement::Placed>& placed);
// Height of the resting strip at home: 32 with a simulated notch or without a screen, else the
// screen's top work-area inset (the desktop's top bar), at least 24.
double strip(const std::optional<Screen>& home, bool fakeNotch);
// Linux screens have no camera housing: 0 unless a simulated width is given.
double notchWidth(std::optional<double> fakeNotch);
// "pill" when placed away; at home the preference, with "auto" meaning "notch" only over a notch.
std::string shape(bool placedAway, const std::string& preference, double notchWidth);
// How far the resting strip's centre sits right of the panel's centre: non-zero when a placed
// panel was clamped at a screen side.
double dx(const std::optional<Placement::Placed>& placed, const Rect& stage);

// The rectangle the page draws (panel coordinates) on the desktop, given the panel frame.
Rect drawnRect(const Rect& drawn, const Rect& frame);

// The panel frame while dragged: centred on the pointer, its top 23 px above it.
Rect dragFrame(Point pointer);

// Where a drop at `pointer` leaves the panel: back home, at a new place on a screen, or where
// it was when no screen can be found.
struct Drop {
  std::optional<Screen> screen;  // the screen dropped on; nothing when none was found
  bool home = false;             // dropped near the home screen's top centre
  double cx = 0;
  double top = 0;
  std::string edge;
};
Drop drop(Point pointer, const std::vector<Screen>& screens,
          const std::optional<Placement::Placed>& placed, const std::optional<Screen>& home);

}  // namespace Geometry
