#pragma once
// Reading transcripts on another machine a piece at a time: the shell script run there that
// sends, for each file, what was appended since an offset (all files of one fetch together at
// most a cap of bytes, the rest next time), what its answer says, and where the reading of each
// file stands between fetches.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/line_reader.h"

namespace HostFetch {

// The script; its arguments are the cap in bytes, then the path and offset of each file.
std::string script();
std::vector<std::string> arguments(size_t cap,
                                   const std::vector<std::pair<std::string, uint64_t>>& files);

struct Piece {
  bool found = false;  // the path named a regular file there
  uint64_t from = 0;   // where `bytes` start: the offset asked, or 0 when the file shrank
  std::string_view bytes;
};
// One piece per file, in order; nothing when the answer is not whole (cut short, or not the
// script's).
std::optional<std::vector<Piece>> parse(std::string_view answer, size_t files);

}  // namespace HostFetch

// Where the reading of one transcript there stands: the offset the next fetch asks from, and
// the start of a line that is not complete yet. A line longer than `kMaxLine` is skipped up to
// its end, never held whole, as in files read here.
class HostTail {
 public:
  static constexpr size_t kMaxLine = LineReader::kMaxLine;

  uint64_t offset() const { return offset_; }
  // Takes a fetched piece: `restart` when the file was read again from its start (before its
  // lines), then each line it completes, without its line break. False when the piece was
  // not the continuation asked for and was left aside.
  bool take(const HostFetch::Piece& piece, const std::function<void()>& restart,
            const std::function<void(std::string_view line)>& line);

 private:
  uint64_t offset_ = 0;
  std::string partial_;
  bool skipping_ = false;
};
