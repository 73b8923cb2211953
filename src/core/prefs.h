#pragma once
// The user's settings: typed getters with fixed defaults over the defaults store, the object
// the panel shows, and applying a change the panel sends.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/defaults.h"
#include "core/hot_key.h"
#include "core/json.h"

namespace Prefs {

// Minutes after which quiet sessions are hidden; 0 keeps them. Default 120.
int64_t hideAfter(const Defaults& d);
// Seconds a finished turn can be answered from the panel; below 1 turns it off. Default 15.
int64_t replyWindow(const Defaults& d);
bool autoOpen(const Defaults& d);    // default false
bool autoUpdate(const Defaults& d);  // default true
bool optionTap(const Defaults& d);   // default true
bool glass(const Defaults& d);       // default false
// Desktop notifications with the answers for requests the user cannot see. Default false.
bool notifyAnswers(const Defaults& d);
// "auto", "notch" or "pill"; anything else reads as "auto".
std::string shape(const Defaults& d);
// "auto", "light" or "dark"; anything else reads as "auto".
std::string theme(const Defaults& d);
// The display the panel hangs from: "auto" (the one the pointer was last on, where the desktop
// tells; else the primary) or a screen key. Default "auto".
std::string screen(const Defaults& d);
// When a finished turn's hook is held open for a reply: "auto" (only while the user has the
// panel open and the agent runs interactively), "always" or "never". Default "auto".
std::string replyHold(const Defaults& d);
// "light" or "dark": "auto" follows the desktop's appearance.
std::string resolvedTheme(const Defaults& d, bool desktopIsDark);
// The stored combination for a hot key, or nothing (the default applies).
std::optional<HotKey::Combo> combo(const Defaults& d, HotKey::Action action);
HotKey::Combo comboOrDefault(const Defaults& d, HotKey::Action action);

// Open at login is the XDG autostart entry, not a stored value.
std::string autostartPath();
bool openAtLogin();
std::optional<std::string> setOpenAtLogin(bool on, const std::string& executable);

// Parts of the settings object owned by other components (agent integrations, the Alt-key
// gesture). Each reporter adds its keys; each handler applies the keys it owns and reports
// whether it took the key. Registered once by the application at start.
using Reporter = std::function<void(Json& settings)>;
using Handler = std::function<bool(std::string_view key, const Json& value, std::string& error)>;
void addReporter(Reporter reporter);
void addHandler(Handler handler);
void resetExtensions();

// Every setting as the panel shows it.
Json json(const Defaults& d);

// Stores one setting (a null value removes it) and performs its side effect. Returns an error
// message the user can read, or nothing.
std::optional<std::string> set(Defaults& d, std::string_view key, const Json& value);

}  // namespace Prefs
