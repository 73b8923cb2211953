#include "app/client.h"

#include <unistd.h>

#include <algorithm>

#include "bridge/wire.h"

namespace Client {

Result exchange(const std::string& socketPath, const std::string& line,
                std::chrono::milliseconds patience) {
  Result result;
  const auto deadline = Wire::Clock::now() + patience;
  int fd =
      Wire::connectBy(socketPath, std::min(deadline, Wire::Clock::now() + std::chrono::seconds(1)));
  if (fd < 0) return result;
  result.connected = true;
  if (!Wire::sendBy(fd, line + "\n", deadline)) {
    result.timedOut = true;
    ::close(fd);
    return result;
  }
  // Signal lines come before the answer; the answer itself may span several lines.
  std::string pending, got;
  Wire::Read r;
  while ((r = Wire::lineBy(fd, pending, got, deadline)) == Wire::Read::kLine &&
         Wire::isSignal(got)) {
  }
  if (r == Wire::Read::kLine) {
    result.answer = got + "\n" + pending;
    r = Wire::restBy(fd, result.answer, deadline);
  } else {
    result.answer = std::move(pending);
  }
  result.timedOut = r == Wire::Read::kTimeout;
  ::close(fd);
  return result;
}

}  // namespace Client
