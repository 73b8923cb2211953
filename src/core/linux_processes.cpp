#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "core/processes.h"

namespace Processes {

std::optional<uint64_t> startTime(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  char path[32];
  std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  char buf[1024];
  ssize_t n = ::read(fd, buf, sizeof buf - 1);
  ::close(fd);
  if (n <= 0) return std::nullopt;
  buf[n] = '\0';
  // "pid (comm) state ppid ... starttime ...": comm may hold blanks and parentheses, so the
  // fields are counted from the last closing parenthesis; starttime is the 20th after it.
  const char* rest = std::strrchr(buf, ')');
  if (!rest) return std::nullopt;
  char state = 0;
  unsigned long long start = 0;
  if (std::sscanf(
          rest + 1,
          " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu",
          &state, &start) != 2)
    return std::nullopt;
  if (state == 'Z' || state == 'X') return std::nullopt;  // it has exited, unreaped or not
  return static_cast<uint64_t>(start);
}

}  // namespace Processes
