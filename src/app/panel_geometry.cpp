#include "app/panel_geometry.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kScreenKey = "placement.screen";

std::string entryKey(const std::string& screenKey) {
  return "placement." + screenKey;
}

// Clamps into [lo, hi]; when the range is empty (a screen smaller than the panel) `lo` wins.
double clampTo(double value, double lo, double hi) {
  return std::max(lo, std::min(hi, value));
}

// The strip the desktop's own top bar covers, at least 24 px.
double topInset(const Screen& screen) {
  return std::max(screen.workArea.minY() - screen.frame.minY(), 24.0);
}

}  // namespace

namespace Placement {

std::optional<Placed> current(const Defaults& defaults, const std::vector<Screen>& screens) {
  std::string key = defaults.string(kScreenKey);
  if (key.empty()) return std::nullopt;
  const Json& entry = defaults.get(entryKey(key));
  if (!entry.is_object()) return std::nullopt;
  for (const Screen& screen : screens) {
    if (screen.key != key) continue;
    std::string edge = JsonField::str(entry, "edge");
    if (edge != "left" && edge != "right") edge.clear();
    return Placed{screen, JsonField::num(entry, "cx"), JsonField::num(entry, "top"), edge};
  }
  return std::nullopt;
}

void save(Defaults& defaults, const Screen& screen, double cx, double top,
          const std::string& edge) {
  Json entry = {{"cx", cx}, {"top", top}};
  if (!edge.empty()) entry["edge"] = edge;
  defaults.set(entryKey(screen.key), std::move(entry));
  defaults.set(kScreenKey, screen.key);
}

void clear(Defaults& defaults) {
  defaults.remove(kScreenKey);
}

}  // namespace Placement

namespace Geometry {

std::optional<Screen> homeScreen(const std::vector<Screen>& screens, const std::string& chosen,
                                 const std::string& pointerScreen) {
  for (const std::string& wanted : {chosen, pointerScreen}) {
    if (wanted.empty()) continue;
    for (const Screen& s : screens)
      if (s.key == wanted || s.name == wanted) return s;
  }
  for (const Screen& s : screens)
    if (s.primary) return s;
  if (screens.empty()) return std::nullopt;
  return screens.front();
}

Rect stageRect(const std::optional<Placement::Placed>& placed, const std::optional<Screen>& home) {
  if (placed) {
    const Rect& f = placed->screen.frame;
    double x;
    if (placed->edge == "left")
      x = f.minX();
    else if (placed->edge == "right")
      x = f.maxX() - kStageWidth;
    else
      x = clampTo(std::round(f.minX() + placed->cx - kStageWidth / 2), f.minX(),
                  f.maxX() - kStageWidth);
    // Hanging from its top line the panel starts 6 px above it; growing upwards, its resting
    // strip (34 px and a 6 px margin) ends at the line plus 40.
    double y = anchor(placed) == "bottom" ? std::round(f.minY() + placed->top + 40 - kStageHeight)
                                          : std::round(f.minY() + placed->top - 6);
    return {x, y, kStageWidth, kStageHeight};
  }
  if (home)
    return {std::round(home->frame.midX() - kStageWidth / 2), home->frame.minY(), kStageWidth,
            kStageHeight};
  return {0, 0, kStageWidth, kStageHeight};
}

std::string anchor(const std::optional<Placement::Placed>& placed) {
  if (placed && placed->screen.frame.h / 2 < placed->top + 17) return "bottom";
  return "top";
}

double strip(const std::optional<Screen>& home, bool fakeNotch) {
  if (fakeNotch || !home) return 32;
  return topInset(*home);
}

double notchWidth(std::optional<double> fakeNotch) {
  return fakeNotch.value_or(0);
}

std::string shape(bool placedAway, const std::string& preference, double notchWidth) {
  if (placedAway) return "pill";
  if (preference == "notch" || preference == "pill") return preference;
  return notchWidth > 0 ? "notch" : "pill";
}

double dx(const std::optional<Placement::Placed>& placed, const Rect& stage) {
  if (!placed || !placed->edge.empty()) return 0;
  return placed->screen.frame.minX() + placed->cx - stage.midX();
}

Rect drawnRect(const Rect& drawn, const Rect& frame) {
  return {frame.minX() + drawn.x, frame.minY() + drawn.y, drawn.w, drawn.h};
}

Rect dragFrame(Point pointer) {
  return {std::round(pointer.x - kStageWidth / 2), std::round(pointer.y - 17 - 6), kStageWidth,
          kStageHeight};
}

Drop drop(Point p, const std::vector<Screen>& screens,
          const std::optional<Placement::Placed>& placed, const std::optional<Screen>& home) {
  Drop out;
  for (const Screen& s : screens) {
    if (s.frame.contains(p)) {
      out.screen = s;
      break;
    }
  }
  if (!out.screen) out.screen = placed ? std::optional<Screen>(placed->screen) : home;
  if (!out.screen) return out;
  const Rect& f = out.screen->frame;
  if (home && out.screen->key == home->key && std::hypot(p.x - f.midX(), p.y - f.minY()) < 110) {
    out.home = true;
    return out;
  }
  if (p.x - f.minX() < 90)
    out.edge = "left";
  else if (f.maxX() - p.x < 90)
    out.edge = "right";
  out.cx = clampTo(p.x - f.minX(), 30, f.w - 30);
  out.top = clampTo(p.y - f.minY() - 17, topInset(*out.screen) + 4, f.h - 34 - 4);
  return out;
}

}  // namespace Geometry
