#include "usage/claude_lines.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "core/files.h"

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

// Walks the members of the object at `p`. `member(key, value)` is called with each key and the
// first character of its value and returns the position past the value, or nullptr when it is
// malformed. Returns the position past the object, or nullptr when it is not a well-formed
// object at this level.
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
    const char* valueEnd = p < end ? member(key, p) : nullptr;
    if (!valueEnd) return nullptr;
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

// Backwards: `p` is just past a closing quote; returns the position of the opening quote, or
// nullptr. Inside a string every quote is escaped, by an odd run of backslashes.
const char* stringBack(const char* begin, const char* p) {
  auto escaped = [begin](const char* q) {
    const char* b = q;
    while (b > begin && b[-1] == '\\') --b;
    return ((q - b) & 1) != 0;
  };
  const char* q = p - 1;
  if (escaped(q)) return nullptr;
  while (q > begin) {
    q = static_cast<const char*>(memrchr(begin, '"', q - begin));
    if (!q) return nullptr;
    if (!escaped(q)) return q;
  }
  return nullptr;
}

const char* skipSpaceBack(const char* begin, const char* p) {
  while (p > begin && isSpace(p[-1])) --p;
  return p;
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
  return walkObject(p, end, [&](std::string_view key, const char* start) -> const char* {
           if (key == "message" && *start == '{') {
             // The message is walked once, its fields picked out on the way. A malformed one
             // leaves the fields read so far.
             const char* stop =
                 walkObject(start, end, [&](std::string_view k, const char* s) -> const char* {
                   const char* e = skipValue(s, end);
                   if (Value* field = messageField(line, k); field && e) *field = valueAt(s, e);
                   return e;
                 });
             return stop ? stop : skipValue(start, end);
           }
           const char* stop = skipValue(start, end);
           if (Value* field = topField(line, key); field && stop) *field = valueAt(start, stop);
           return stop;
         }) != nullptr;
}

std::optional<Tail> scanTail(std::string_view text, int maxMembers) {
  const char* const begin = text.data();
  const char* p = skipSpaceBack(begin, begin + text.size());
  if (p == begin || p[-1] != '}') return std::nullopt;
  p = skipSpaceBack(begin, p - 1);
  Tail tail;
  bool typeSeen = false, timestampSeen = false;
  for (int members = 0; members < maxMembers && !(typeSeen && timestampSeen); ++members) {
    if (p == begin) return tail;
    const char* valueStart;
    if (p[-1] == '"') {
      valueStart = stringBack(begin, p);
    } else {
      valueStart = p;
      while (valueStart > begin && !isSpace(valueStart[-1]) &&
             !std::strchr(",:{}[]\"", valueStart[-1]))
        --valueStart;
      if (valueStart == p) valueStart = nullptr;  // an object, an array or no value
    }
    if (!valueStart) return tail;
    const char* colon = skipSpaceBack(begin, valueStart);
    if (colon == begin || colon[-1] != ':') return tail;
    const char* keyEnd = skipSpaceBack(begin, colon - 1);
    if (keyEnd == begin || keyEnd[-1] != '"') return tail;
    const char* keyStart = stringBack(begin, keyEnd);
    if (!keyStart) return tail;
    const std::string_view key(keyStart + 1, keyEnd - keyStart - 2);
    // Read backwards, the first of a repeated key is the one a forward scan keeps.
    if (key == "type" && !typeSeen) {
      tail.type = valueAt(valueStart, p);
      typeSeen = true;
    } else if (key == "timestamp" && !timestampSeen) {
      tail.timestamp = valueAt(valueStart, p);
      timestampSeen = true;
    }
    p = skipSpaceBack(begin, keyStart);
    if (p > begin && p[-1] == ',') {
      p = skipSpaceBack(begin, p - 1);
      continue;
    }
    tail.whole = p > begin && p[-1] == '{' && skipSpaceBack(begin, p - 1) == begin;
    return tail;
  }
  return tail;
}

Pricing::Usage usageOf(std::string_view json) {
  const char* end = json.data() + json.size();
  // A JSON number; anything else reads as nothing.
  auto number = [](const char* s, const char* e) -> std::optional<double> {
    if (s >= e || !(*s == '-' || (*s >= '0' && *s <= '9'))) return std::nullopt;
    double v = 0;
    const auto [stop, error] = std::from_chars(s, e, v);
    if (error != std::errc() || stop != e || !std::isfinite(v)) return std::nullopt;
    return v;
  };
  Pricing::Usage u;
  auto set = [&](double& field, const char* s, const char* e) {
    if (auto v = number(s, e)) field = *v;
  };
  const char* stop = walkObject(
      skipSpace(json.data(), end), end, [&](std::string_view key, const char* s) -> const char* {
        const char* e = skipValue(s, end);
        if (!e) return nullptr;
        if (key == "input_tokens") {
          set(u.input, s, e);
        } else if (key == "output_tokens") {
          set(u.output, s, e);
        } else if (key == "cache_read_input_tokens") {
          set(u.cacheRead, s, e);
        } else if (key == "cache_creation_input_tokens") {
          set(u.cacheCreation, s, e);
        } else if (key == "cache_creation" && *s == '{') {
          u.split = true;
          walkObject(s, e, [&](std::string_view k, const char* vs) -> const char* {
            const char* ve = skipValue(vs, e);
            if (!ve) return nullptr;
            if (k == "ephemeral_1h_input_tokens") set(u.oneHour, vs, ve);
            if (k == "ephemeral_5m_input_tokens") u.fiveMinute = number(vs, ve);
            return ve;
          });
        }
        return e;
      });
  return stop ? u : Pricing::Usage{};
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
    const Pricing::Usage usage = usageOf(entry->usage);
    auto whole = [](double tokens) {
      return static_cast<int64_t>(std::clamp(tokens, -9.2e18, 9.2e18));
    };
    Count after{entry->model, Pricing::cost(entry->model, usage),
                whole(usage.input) + whole(usage.output)};
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

std::string trimmed(std::string_view s) {
  auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return std::string(s);
}

}  // namespace ClaudeLines
