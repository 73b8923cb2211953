#pragma once
// Talking to a running Vantler from the command line, over the same socket the hooks use.

#include <optional>
#include <string>

namespace Client {

struct Result {
  bool connected = false;  // false: no app is listening
  std::string answer;      // everything the app wrote before closing
};

// Sends one line and reads until the app closes the connection.
Result exchange(const std::string& socketPath, const std::string& line);

}  // namespace Client
