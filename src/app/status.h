#pragma once
// `vantler status`: the summary line of the running app's sessions for a status bar, once or,
// following the app's snapshots over the socket, again whenever it changes.

#include "core/status_line.h"

namespace Status {

struct Options {
  StatusLine::Format format = StatusLine::Format::plain;
  bool follow = false;
};

// Prints the line (the "off" line when no app runs; that is no error) and returns the exit
// status. Following ends when stdout is closed.
int run(const Options& options);

}  // namespace Status
