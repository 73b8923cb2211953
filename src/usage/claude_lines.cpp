#include "usage/claude_lines.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/files.h"
#include "usage/pricing.h"

namespace ClaudeLines {
namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

const char* skipSpace(const char* p, const char* end) {
  while (p < end && isSpace(*p)) ++p;
  return p;
}

// `p` is at an opening quote; returns the position past the closing quote, or nullptr.
const char* skipString(const char* p, const char* end) {
  const char* from = p + 1;
  while (from < end) {
    const char* q = static_cast<const char*>(memchr(from, '"', end - from));
    if (!q) return nullptr;
    const char* b = q;
    while (b > from && b[-1] == '\\') --b;
    if (((q - b) & 1) == 0) return q + 1;
    from = q + 1;
  }
  return nullptr;
}

// `p` is at the first character of a value; returns the position past it, or nullptr. Nested
// values are matched by their brackets only: what lies inside is not validated.
const char* skipValue(const char* p, const char* end) {
  if (p >= end) return nullptr;
  if (*p == '"') return skipString(p, end);
  if (*p == '{' || *p == '[') {
    int depth = 0;
    while (p < end) {
      switch (*p) {
        case '"':
          p = skipString(p, end);
          if (!p) return nullptr;
          continue;
        case '{':
        case '[':
          ++depth;
          break;
        case '}':
        case ']':
          if (--depth == 0) return p + 1;
          break;
        default:
          break;
      }
      ++p;
    }
    return nullptr;
  }
  const char* start = p;
  while (p < end && !isSpace(*p) && *p != ',' && *p != '}' && *p != ']') ++p;
  return p == start ? nullptr : p;
}

Value valueAt(const char* start, const char* stop) {
  const char c = *start;
  if (c == '"') return {std::string_view(start + 1, stop - start - 2), '"'};
  char kind = c == '{' || c == '[' || c == 't' || c == 'f' || c == 'n' ? c : '0';
  return {std::string_view(start, stop - start), kind};
}

// Walks the members of the object at `p`, calling `member(key, value)` for each. Returns the
// position past the object, or nullptr when it is not a well-formed object at this level.
template <class F>
const char* walkObject(const char* p, const char* end, F&& member) {
  if (p >= end || *p != '{') return nullptr;
  p = skipSpace(p + 1, end);
  if (p < end && *p == '}') return p + 1;
  while (p < end) {
    if (*p != '"') return nullptr;
    const char* keyEnd = skipString(p, end);
    if (!keyEnd) return nullptr;
    const std::string_view key(p + 1, keyEnd - p - 2);
    p = skipSpace(keyEnd, end);
    if (p >= end || *p != ':') return nullptr;
    p = skipSpace(p + 1, end);
    const char* valueEnd = skipValue(p, end);
    if (!valueEnd) return nullptr;
    member(key, p, valueEnd);
    p = skipSpace(valueEnd, end);
    if (p < end && *p == ',') {
      p = skipSpace(p + 1, end);
      continue;
    }
    if (p < end && *p == '}') return p + 1;
    return nullptr;
  }
  return nullptr;
}

Value* topField(Line& line, std::string_view key) {
  switch (key.size()) {
    case 3:
      if (key == "cwd") return &line.cwd;
      break;
    case 4:
      if (key == "type") return &line.type;
      break;
    case 6:
      if (key == "isMeta") return &line.isMeta;
      break;
    case 7:
      if (key == "subtype") return &line.subtype;
      break;
    case 9:
      if (key == "gitBranch") return &line.gitBranch;
      if (key == "timestamp") return &line.timestamp;
      if (key == "requestId") return &line.requestId;
      break;
    case 10:
      if (key == "entrypoint") return &line.entrypoint;
      break;
    case 11:
      if (key == "customTitle") return &line.customTitle;
      if (key == "isSidechain") return &line.isSidechain;
      break;
    case 16:
      if (key == "isCompactSummary") return &line.isCompactSummary;
      break;
    default:
      break;
  }
  return nullptr;
}

Value* messageField(Line& line, std::string_view key) {
  if (key == "id") return &line.messageId;
  if (key == "model") return &line.messageModel;
  if (key == "role") return &line.messageRole;
  if (key == "stop_reason") return &line.messageStopReason;
  if (key == "usage") return &line.messageUsage;
  if (key == "content") return &line.messageContent;
  return nullptr;
}

int digits(std::string_view s, size_t at, size_t n) {
  if (at + n > s.size()) return -1;
  int v = 0;
  for (size_t i = at; i < at + n; ++i) {
    if (s[i] < '0' || s[i] > '9') return -1;
    v = v * 10 + (s[i] - '0');
  }
  return v;
}

// Days since 1970-01-01 of a proleptic Gregorian date.
int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

}  // namespace

bool scan(std::string_view text, Line& line) {
  line = Line{};
  const char* end = text.data() + text.size();
  const char* p = skipSpace(text.data(), end);
  return walkObject(p, end, [&](std::string_view key, const char* start, const char* stop) {
           if (key == "message") {
             if (*start != '{') return;
             // A malformed message leaves the fields read so far.
             walkObject(start, stop, [&](std::string_view k, const char* s, const char* e) {
               if (Value* field = messageField(line, k)) *field = valueAt(s, e);
             });
           } else if (Value* field = topField(line, key)) {
             *field = valueAt(start, stop);
           }
         }) != nullptr;
}

std::optional<std::string> text(const Value& value) {
  if (!value.isString()) return std::nullopt;
  if (value.raw.find('\\') == std::string_view::npos) return std::string(value.raw);
  std::string quoted;
  quoted.reserve(value.raw.size() + 2);
  quoted += '"';
  quoted += value.raw;
  quoted += '"';
  Json parsed = JsonField::parse(quoted);
  if (!parsed.is_string()) return std::nullopt;
  return parsed.get<std::string>();
}

std::optional<double> parseTime(std::string_view s) {
  const int year = digits(s, 0, 4), month = digits(s, 5, 2), day = digits(s, 8, 2);
  const int hour = digits(s, 11, 2), minute = digits(s, 14, 2), second = digits(s, 17, 2);
  if (year < 0 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 ||
      minute < 0 || minute > 59 || second < 0 || second > 60 || s[4] != '-' || s[7] != '-' ||
      (s[10] != 'T' && s[10] != 't' && s[10] != ' ') || s[13] != ':' || s[16] != ':')
    return std::nullopt;
  double fraction = 0;
  size_t i = 19;
  if (i < s.size() && (s[i] == '.' || s[i] == ',')) {
    double scale = 0.1;
    for (++i; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i, scale /= 10)
      fraction += (s[i] - '0') * scale;
  }
  int offset = 0;
  if (i < s.size() && (s[i] == 'Z' || s[i] == 'z')) {
    ++i;
  } else if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    const int oh = digits(s, i + 1, 2);
    const bool colon = i + 3 < s.size() && s[i + 3] == ':';
    const int om = digits(s, i + (colon ? 4 : 3), 2);
    if (oh < 0 || om < 0) return std::nullopt;
    offset = (s[i] == '-' ? -1 : 1) * (oh * 3600 + om * 60);
    i += colon ? 6 : 5;
  } else {
    return std::nullopt;
  }
  if (i != s.size()) return std::nullopt;
  const int64_t days =
      daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
  return static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second - offset) + fraction;
}

std::string messageKey(std::string_view messageId, std::string_view requestId) {
  if (messageId.empty()) return {};
  std::string key;
  key.reserve(messageId.size() + requestId.size() + 1);
  key += messageId;
  key += '\n';  // cannot occur inside either id as it is written in a line
  key += requestId;
  return key;
}

void MessageLedger::record(const Line& line) {
  if (line.messageUsage.kind != '{') return;
  std::string model = text(line.messageModel).value_or("");
  if (model == kSynthetic) return;
  std::string key = messageKey(line.messageId.isString() ? line.messageId.raw : std::string_view{},
                               line.requestId.isString() ? line.requestId.raw : std::string_view{});
  // A line without a message id cannot be matched with others: it counts on its own.
  if (key.empty()) key.append("#").append(std::to_string(++anonymous_));
  Entry& entry = entries_[std::move(key)];
  entry.model = std::move(model);
  entry.usage.assign(line.messageUsage.raw);
  if (!entry.dirty) {
    entry.dirty = true;
    dirty_.push_back(&entry);
  }
}

void MessageLedger::settle(
    const std::function<void(const Count* before, const Count& after)>& change) {
  for (Entry* entry : dirty_) {
    const Json usage = JsonField::parse(entry->usage);
    Count after{
        entry->model, Pricing::cost(entry->model, usage),
        JsonField::integer(usage, "input_tokens") + JsonField::integer(usage, "output_tokens")};
    change(entry->counted ? &*entry->counted : nullptr, after);
    entry->counted = std::move(after);
    entry->dirty = false;
    std::string().swap(entry->usage);
  }
  dirty_.clear();
}

void MessageLedger::clear() {
  entries_.clear();
  dirty_.clear();
}

int64_t readLines(int fd, int64_t from, const std::function<void(std::string_view)>& line) {
  // Small appends are the common case; the buffer grows for large reads and long lines.
  constexpr size_t kLargest = 4 << 20;
  std::string buffer(1 << 16, '\0');
  size_t held = 0;  // bytes of an unfinished line at the front of the buffer
  int64_t consumed = from;
  int64_t position = from;
  for (bool grow = false;;) {
    if (grow || buffer.size() - held < buffer.size() / 2) buffer.resize(buffer.size() * 2);
    const size_t want = buffer.size() - held;
    const ssize_t n = pread(fd, buffer.data() + held, want, position);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    grow = static_cast<size_t>(n) == want && buffer.size() < kLargest;
    position += n;
    const char* start = buffer.data();
    const char* end = buffer.data() + held + n;
    const char* scanFrom = start + held;
    while (const char* nl = static_cast<const char*>(
               memchr(scanFrom, '\n', static_cast<size_t>(end - scanFrom)))) {
      line(std::string_view(start, nl - start));
      start = scanFrom = nl + 1;
    }
    consumed += start - buffer.data();
    held = static_cast<size_t>(end - start);
    if (held > 0 && start != buffer.data()) memmove(buffer.data(), start, held);
  }
  return consumed;
}

void forEachTranscript(const std::string& root,
                       const std::function<void(const std::string& path, std::string_view name,
                                                const struct stat& info)>& visit) {
  DIR* projects = opendir(root.c_str());
  if (!projects) return;
  std::string path;
  while (const dirent* project = readdir(projects)) {
    if (project->d_name[0] == '.') continue;
    if (project->d_type != DT_DIR && project->d_type != DT_UNKNOWN) continue;
    const int dirFd = openat(dirfd(projects), project->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) continue;
    DIR* dir = fdopendir(dirFd);
    if (!dir) {
      close(dirFd);
      continue;
    }
    const std::string base = root + "/" + project->d_name + "/";
    while (const dirent* entry = readdir(dir)) {
      const std::string_view name(entry->d_name);
      if (name.size() <= 6 || !name.ends_with(".jsonl") || name[0] == '.') continue;
      if (entry->d_type != DT_REG && entry->d_type != DT_UNKNOWN) continue;
      struct stat info;
      if (fstatat(dirFd, entry->d_name, &info, 0) != 0 || !S_ISREG(info.st_mode)) continue;
      path.assign(base).append(name);
      visit(path, std::string_view(path).substr(base.size()), info);
    }
    closedir(dir);
  }
  closedir(projects);
}

std::string projectsDirectory() {
  return Files::home() + "/.claude/projects";
}

}  // namespace ClaudeLines
