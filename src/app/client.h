#pragma once
// Talking to a running Vantler from the command line, over the same socket the hooks use.

#include <chrono>
#include <optional>
#include <string>

namespace Client {

struct Result {
  bool connected = false;  // false: no app of ours is listening
  bool timedOut = false;   // the app did not finish its answer in time
  std::string answer;      // everything the app wrote before closing, without its signal lines
};

// Sends one line and reads until the app closes the connection, all within `patience`.
Result exchange(const std::string& socketPath, const std::string& line,
                std::chrono::milliseconds patience = std::chrono::seconds(10));

}  // namespace Client
