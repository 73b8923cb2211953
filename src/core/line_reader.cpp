#include "core/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// One read call's worth: small enough that what was just copied is still in the cache when
// its lines are looked at. Most appends are far smaller.
constexpr size_t kChunk = 128u << 10;
// A buffer grown for a long line is given back once the read is over.
constexpr size_t kKeep = 4u << 20;

}  // namespace

void LineMark::skipTo(const struct stat& info) {
  device = info.st_dev;
  inode = info.st_ino;
  offset = seen = info.st_size;
  skipping = false;
}

LineReader::LineReader() = default;
LineReader::~LineReader() = default;

void LineReader::reserve(size_t bytes, size_t keep) {
  if (bytes <= capacity_) return;
  // Grown without clearing: only bytes read from the file are ever looked at.
  const size_t grown = std::max({bytes, capacity_ * 2, kChunk});
  std::unique_ptr<char[]> next(new char[grown]);
  if (keep) std::memcpy(next.get(), buffer_.get(), keep);
  buffer_ = std::move(next);
  capacity_ = grown;
}

LineReader::Result LineReader::read(const std::string& path, LineMark& mark, size_t budget,
                                    const Visit& visit, const Restart& restart) {
  Result result;
  // Non-blocking, so that a FIFO put in a file's place cannot stall the open; it is refused
  // below without being read.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return result;
  if (::fstat(fd, &result.info) == 0 && S_ISREG(result.info.st_mode)) {
    result.regular = true;
    scan(fd, mark, budget, result, visit, restart);
  }
  ::close(fd);
  if (capacity_ > kKeep) {
    buffer_.reset();
    capacity_ = 0;
  }
  return result;
}

void LineReader::scan(int fd, LineMark& mark, size_t budget, Result& result, const Visit& visit,
                      const Restart& restart) {
  const struct stat& info = result.info;
  const int64_t size = info.st_size;
  if (mark.device != info.st_dev || mark.inode != info.st_ino || size < mark.seen) {
    mark = LineMark{info.st_dev, info.st_ino};
    result.restarted = true;
    if (restart) restart();
  }
  if (size == mark.seen) return;
  // Fewer allocated blocks than the length: the file has holes, which are stepped over.
  const bool sparse = static_cast<int64_t>(info.st_blocks) * 512 < size;

  int64_t at = mark.offset;  // where the next read goes; `held` bytes before it are kept
  size_t held = 0;
  while (at < size) {
    // Stops only between lines, so that no line is read twice to finish a slice.
    if (result.bytes >= budget && held == 0) {
      result.more = true;
      break;
    }
    if (sparse) {
      const off_t data = ::lseek(fd, at, SEEK_DATA);
      if ((data < 0 && errno == ENXIO) || data > at) {
        // A hole reads as zero bytes, never a line end: the line it lies in is no JSON line.
        at = data < 0 ? size : std::min<int64_t>(data, size);
        mark.offset = at;
        mark.skipping = true;
        held = 0;
        continue;
      }
    }
    reserve(held + kChunk, held);
    const size_t want = static_cast<size_t>(std::min<int64_t>(kChunk, size - at));
    const ssize_t n = ::pread(fd, buffer_.get() + held, want, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    // Past the budget, a read only finishes the line in progress.
    const bool finishing = result.bytes >= budget;
    at += n;
    result.bytes += static_cast<size_t>(n);

    char* const begin = buffer_.get();
    char* const end = begin + held + n;
    char* lineStart = begin;
    char* from = begin + held;
    if (mark.skipping) {
      char* nl = static_cast<char*>(std::memchr(from, '\n', static_cast<size_t>(end - from)));
      if (!nl) {
        mark.offset = at;
        continue;
      }
      mark.skipping = false;
      lineStart = from = nl + 1;
    }
    while (char* nl =
               static_cast<char*>(std::memchr(from, '\n', static_cast<size_t>(end - from)))) {
      visit(std::string_view(lineStart, static_cast<size_t>(nl - lineStart)));
      lineStart = from = nl + 1;
      if (finishing) break;
    }
    if (finishing && lineStart != begin) {
      // The slice ends here; what follows is read again next time.
      at = mark.offset = at - static_cast<int64_t>(end - lineStart);
      result.more = at < size;
      break;
    }
    held = static_cast<size_t>(end - lineStart);
    mark.offset = at - static_cast<int64_t>(held);
    if (held >= kMaxLine) {
      mark.skipping = true;
      mark.offset = at;
      held = 0;
    } else if (held && lineStart != begin) {
      std::memmove(begin, lineStart, held);
    }
  }
  mark.seen = at;
}
