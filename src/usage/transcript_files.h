#pragma once
// The file handling that every transcript format shares: one reading position and one set of
// running figures per path, fed the lines appended since the previous read.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "core/line_reader.h"
#include "core/session.h"

// `Figures` is one format's running state, shaped like a TranscriptFigures: default-constructible,
// with `add(line)` for each complete line and `figures()` for what the lines so far add up to.
// A call reads at most about `slice` bytes; a file that shrank or was replaced starts its figures
// again from nothing; a path that is not a regular file gives nothing and is forgotten.
template <class Figures>
class TranscriptFiles {
 public:
  explicit TranscriptFiles(size_t slice) : slice_(slice) {}

  std::optional<TranscriptStats> update(const std::string& path) {
    auto& entry = files_[path];
    if (!entry) entry = std::make_unique<Entry>();
    const LineReader::Result result = reader_.read(
        path, entry->mark, slice_, [&](std::string_view line) { entry->figures.add(line); },
        [&] { entry->figures = Figures(); });
    if (!result.regular) {
      files_.erase(path);
      return std::nullopt;
    }
    return entry->figures.figures();
  }

  void forget(const std::string& path) { files_.erase(path); }

 private:
  struct Entry {
    LineMark mark;
    Figures figures;
  };
  std::unordered_map<std::string, std::unique_ptr<Entry>> files_;
  LineReader reader_;
  size_t slice_;
};
