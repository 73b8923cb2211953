#include "app/client.h"

#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace Client {

Result exchange(const std::string& socketPath, const std::string& line) {
  Result result;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (socketPath.size() >= sizeof addr.sun_path) return result;
  std::memcpy(addr.sun_path, socketPath.c_str(), socketPath.size() + 1);
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return result;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return result;
  }
  result.connected = true;
  std::string out = line + "\n";
  for (size_t done = 0; done < out.size();) {
    ssize_t n = ::send(fd, out.data() + done, out.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    result.answer.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return result;
}

}  // namespace Client
