#pragma once
// The hook socket's wire protocol, shared by the app's bridge, the `vantler-hook` executable and
// the command-line client.
//
// Where: a Unix stream socket at ~/.vantler/run/vantler.sock. The run directory must be a real
// directory (not a symbolic link) owned by the user, with no access for group or others; a
// client also checks that the listening process runs as its own user (SO_PEERCRED) and
// otherwise behaves as if no app were running.
//
// What: one request per connection, as one line of compact JSON ending in a line feed. The app
// answers every request at once with one of:
//   - the answer: one line (a JSON body for the agent, or an empty line for "nothing to say"),
//     after which the app closes the connection. Events that need no decision, state queries
//     ({"_query":"state"}, answered with a pretty-printed document that spans several lines and
//     ends at the close) and commands ({"_command":{...}}) are answered this way.
//   - `kHold`: the request waits for the user (a permission prompt, a question, a reply window).
//     While it waits the app writes `kAlive` every `kAliveEvery` seconds; the answer line comes
//     when the user decides, then the connection closes.
//   - for {"_command":{"type":"subscribe"}}: the snapshot as one line of compact JSON at once
//     and again after changes, until either side closes (see bridge/subscribers.h).
// Only the app decides which requests wait; a client just follows the lines.
//
// Deadlines on the client side: connecting, sending and the first line together take at most
// `kFirstLineWithin` (an app that is stopped or swamped never holds up the agent longer); after
// `kHold`, a silence longer than `kSilenceLimit` means the app is gone. A client that gives up
// closes its end: the app then withdraws the request and the agent asks in its own window.
//
// Limits on the app side: a line longer than `kMaxLine` closes its connection.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace Wire {

using Clock = std::chrono::steady_clock;

inline constexpr std::string_view kHold = "~hold";
inline constexpr std::string_view kAlive = "~alive";
inline constexpr double kAliveEvery = 2.0;  // seconds
inline constexpr auto kFirstLineWithin = std::chrono::milliseconds(300);
inline constexpr auto kSilenceLimit = std::chrono::milliseconds(5000);
inline constexpr size_t kMaxLine = 16u << 20;

std::string runDir(const std::string& home);
std::string socketPath(const std::string& home);

// Why the run directory may not be used (a symbolic link, not a directory, someone else's,
// open to others), or nothing when it is fine or does not exist yet.
std::optional<std::string> runDirProblem(const std::string& dir);

// Whether a line is one of the app's signals rather than an answer.
bool isSignal(std::string_view line);

// Connects to the socket at `path` by `deadline`; -1 when nothing of ours listens there (no
// socket, a refusal, a full backlog that does not clear in time, or a listener of another user).
int connectBy(const std::string& path, Clock::time_point deadline);
// Writes all of `data` by `deadline`.
bool sendBy(int fd, std::string_view data, Clock::time_point deadline);

enum class Read { kLine, kClosed, kTimeout };
// Reads the next line (without its line feed) into `line`, keeping bytes after it in `pending`.
// kClosed when the connection ends first (bytes of an unfinished line stay in `pending`).
Read lineBy(int fd, std::string& pending, std::string& line, Clock::time_point deadline);
// Appends everything up to the end of the connection to `out`: kClosed, or kTimeout.
Read restBy(int fd, std::string& out, Clock::time_point deadline);

}  // namespace Wire
