#include "integrations/host_transcripts.h"

#include <charconv>

namespace HostFetch {

std::string script() {
  // `-f` refuses FIFOs and devices; `wc -c` gives the size first so that what is sent stops at
  // a length announced beforehand, even while the agent goes on writing.
  return "cap=$1; shift\n"
         "while [ $# -ge 2 ]; do\n"
         "  if [ -f \"$1\" ] && [ -r \"$1\" ] && s=$(wc -c <\"$1\"); then\n"
         "    s=$((s)); o=$2\n"
         "    [ \"$s\" -lt \"$o\" ] && o=0\n"
         "    n=$((s - o)); [ \"$n\" -gt \"$cap\" ] && n=$cap\n"
         "    cap=$((cap - n))\n"
         "    printf '%s %s\\n' \"$o\" \"$n\"\n"
         "    [ \"$n\" -gt 0 ] && tail -c +$((o + 1)) \"$1\" | head -c \"$n\"\n"
         "    printf '\\n'\n"
         "  else\n"
         "    printf '%s\\n' -\n"
         "  fi\n"
         "  shift 2\n"
         "done\n";
}

std::vector<std::string> arguments(size_t cap,
                                   const std::vector<std::pair<std::string, uint64_t>>& files) {
  std::vector<std::string> args = {std::to_string(cap)};
  for (const auto& [path, offset] : files) {
    args.push_back(path);
    args.push_back(std::to_string(offset));
  }
  return args;
}

std::optional<std::vector<Piece>> parse(std::string_view answer, size_t files) {
  std::vector<Piece> pieces;
  size_t at = 0;
  auto number = [&](uint64_t& value, char end) {
    const char* first = answer.data() + at;
    const char* last = answer.data() + answer.size();
    auto [ptr, ec] = std::from_chars(first, last, value);
    if (ec != std::errc() || ptr == first || ptr == last || *ptr != end) return false;
    at = static_cast<size_t>(ptr - answer.data()) + 1;
    return true;
  };
  while (pieces.size() < files) {
    Piece piece;
    if (answer.substr(at, 2) == "-\n") {
      at += 2;
      pieces.push_back(piece);
      continue;
    }
    uint64_t length = 0;
    if (!number(piece.from, ' ') || !number(length, '\n')) return std::nullopt;
    // The bytes, then the line break the script adds after them.
    if (length >= answer.size() - at || answer[at + length] != '\n') return std::nullopt;
    piece.found = true;
    piece.bytes = answer.substr(at, length);
    at += length + 1;
    pieces.push_back(piece);
  }
  if (at != answer.size()) return std::nullopt;
  return pieces;
}

}  // namespace HostFetch

bool HostTail::take(const HostFetch::Piece& piece, const std::function<void()>& restart,
                    const std::function<void(std::string_view line)>& line) {
  if (!piece.found) return true;
  if (piece.from != offset_) {
    if (piece.from != 0) return false;
    offset_ = 0;
    partial_.clear();
    skipping_ = false;
    restart();
  }
  std::string_view rest = piece.bytes;
  offset_ += rest.size();
  for (size_t end; (end = rest.find('\n')) != std::string_view::npos; rest.remove_prefix(end + 1)) {
    if (skipping_) {
      skipping_ = false;
    } else if (partial_.empty()) {
      line(rest.substr(0, end));
    } else if (partial_.size() + end <= kMaxLine) {
      partial_.append(rest.substr(0, end));
      line(partial_);
      partial_.clear();
    } else {
      partial_.clear();
    }
  }
  if (skipping_) return true;
  if (partial_.size() + rest.size() > kMaxLine) {
    partial_.clear();
    skipping_ = true;
    return true;
  }
  partial_.append(rest);
  return true;
}
