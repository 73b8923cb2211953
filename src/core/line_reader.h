#pragma once
// Following files of JSON lines that other programs append to (agents' transcripts and logs).
//
// A file is read from where the previous read stopped, only when it is a regular file, never
// blocking (a FIFO or device under the watched name is refused without reading), and in bounded
// slices: one read passes on about `budget` bytes of lines and leaves the rest for the next.
// A line longer than `kMaxLine` is skipped up to its end, even across reads, and is never held
// in memory whole; runs of a sparse file that hold no data are stepped over without reading.
// Memory does not grow with a file's length: one buffer per reader, reused for every file.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

// Where reading one file stopped. Kept by the caller between reads of the same path.
struct LineMark {
  dev_t device = 0;
  ino_t inode = 0;
  int64_t offset = 0;     // the start of the first line not passed on yet
  int64_t seen = 0;       // how far the file was read (past `offset` when a line is unfinished)
  bool skipping = false;  // `offset` lies inside an over-long line that is being skipped

  // Whether the file described is this one with nothing appended since the last read.
  bool current(const struct stat& info) const {
    return device == info.st_dev && inode == info.st_ino && seen == info.st_size;
  }
  // Takes the file as read to its end without reading it.
  void skipTo(const struct stat& info);
};

class LineReader {
 public:
  static constexpr size_t kMaxLine = 16u << 20;
  static constexpr size_t kUnlimited = SIZE_MAX;

  struct Result {
    bool regular = false;    // the path named a regular file that could be opened
    bool restarted = false;  // the file was replaced or shrank: it was read from its start
    bool more = false;       // the budget ran out before the end of the file
    size_t bytes = 0;        // bytes read from the file
    struct stat info = {};
  };

  using Visit = std::function<void(std::string_view line)>;
  using Restart = std::function<void()>;

  LineReader();
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Passes each complete line appended since `mark` to `visit`, without its line break. A last
  // line without a line break is passed once it is complete. Nothing is read when the file has
  // not grown since the last read. When the file was replaced or shrank, `restart` is called
  // before it is read again from its start.
  Result read(const std::string& path, LineMark& mark, size_t budget, const Visit& visit,
              const Restart& restart = {});

 private:
  // Room for `bytes`, keeping the first `keep` bytes held.
  void reserve(size_t bytes, size_t keep);
  void scan(int fd, LineMark& mark, size_t budget, Result& result, const Visit& visit,
            const Restart& restart);

  std::unique_ptr<char[]> buffer_;
  size_t capacity_ = 0;
};
