#pragma once
// The desktop app: what `vantler` without arguments starts. One instance per user session;
// a newer launch replaces the running one.

#include <string>

namespace DesktopApp {

inline constexpr const char* kAppId = "dev.vantler.Vantler";
inline constexpr const char* kObjectPath = "/dev/vantler/Vantler";

// Runs the panel until quit. Without a display, says so and returns non-zero.
int run(const char* argv0);

// Asks the running desktop app to perform an action ("toggle", "open", "talk", "quit").
int activate(const std::string& action);

}  // namespace DesktopApp
