#include "core/json_writer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace {

// Length of the valid UTF-8 sequence at `s`, or 0 when it is not one.
size_t utf8Length(const unsigned char* s, size_t left) {
  unsigned char c = s[0];
  size_t n;
  uint32_t cp;
  if (c < 0x80) return 1;
  if ((c & 0xE0) == 0xC0)
    n = 2, cp = c & 0x1F;
  else if ((c & 0xF0) == 0xE0)
    n = 3, cp = c & 0x0F;
  else if ((c & 0xF8) == 0xF0)
    n = 4, cp = c & 0x07;
  else
    return 0;
  if (left < n) return 0;
  for (size_t i = 1; i < n; ++i) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  if ((n == 2 && cp < 0x80) || (n == 3 && cp < 0x800) || (n == 4 && cp < 0x10000) ||
      cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
    return 0;
  return n;
}

}  // namespace

void JsonWriter::separate() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (!first_.empty()) {
    if (!first_.back()) out_ += ',';
    first_.back() = 0;
  }
}

JsonWriter& JsonWriter::beginObject() {
  separate();
  out_ += '{';
  first_.push_back(1);
  return *this;
}

JsonWriter& JsonWriter::endObject() {
  out_ += '}';
  first_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::beginArray() {
  separate();
  out_ += '[';
  first_.push_back(1);
  return *this;
}

JsonWriter& JsonWriter::endArray() {
  out_ += ']';
  first_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
  separate();
  // Keys are the program's own names: plain ASCII that needs no escaping.
  const size_t at = out_.size();
  out_.resize(at + name.size() + 3);
  char* p = out_.data() + at;
  *p++ = '"';
  std::memcpy(p, name.data(), name.size());
  p += name.size();
  *p++ = '"';
  *p = ':';
  afterKey_ = true;
  return *this;
}

namespace {

// Bytes that cannot be copied through as they are: controls, quote, backslash, non-ASCII.
constexpr auto kSpecial = [] {
  std::array<bool, 256> t{};
  for (int c = 0; c < 256; ++c) t[c] = c < 0x20 || c == '"' || c == '\\' || c >= 0x80;
  return t;
}();

}  // namespace

JsonWriter& JsonWriter::string(std::string_view value) {
  separate();
  static constexpr char kHex[] = "0123456789abcdef";
  out_ += '"';
  const auto* s = reinterpret_cast<const unsigned char*>(value.data());
  const size_t n = value.size();
  size_t i = 0;
  while (i < n) {
    size_t run = i;
    // Eight bytes at a time while none of them needs attention.
    while (i + 8 <= n) {
      uint64_t x;
      std::memcpy(&x, s + i, 8);
      constexpr uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
      uint64_t control = (x - kOnes * 0x20) & ~x;
      uint64_t quote = ((x ^ (kOnes * '"')) - kOnes) & ~(x ^ (kOnes * '"'));
      uint64_t slash = ((x ^ (kOnes * '\\')) - kOnes) & ~(x ^ (kOnes * '\\'));
      if (((control | quote | slash) & kHigh) || (x & kHigh)) break;
      i += 8;
    }
    while (i < n && !kSpecial[s[i]]) ++i;
    out_.append(value.data() + run, i - run);
    if (i == n) break;
    unsigned char c = s[i];
    if (c >= 0x80) {
      size_t len = utf8Length(s + i, n - i);
      if (len) {
        out_.append(value.data() + i, len);
        i += len;
      } else {
        out_ += "\xEF\xBF\xBD";
        ++i;
      }
      continue;
    }
    switch (c) {
      case '"':
        out_ += "\\\"";
        break;
      case '\\':
        out_ += "\\\\";
        break;
      case '\n':
        out_ += "\\n";
        break;
      case '\r':
        out_ += "\\r";
        break;
      case '\t':
        out_ += "\\t";
        break;
      case '\b':
        out_ += "\\b";
        break;
      case '\f':
        out_ += "\\f";
        break;
      default: {
        const char esc[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
        out_.append(esc, sizeof esc);
      }
    }
    ++i;
  }
  out_ += '"';
  return *this;
}

JsonWriter& JsonWriter::number(double value) {
  separate();
  if (!std::isfinite(value)) {
    out_ += "null";
    return *this;
  }
  char buf[32];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  out_.append(buf, end);
  return *this;
}

JsonWriter& JsonWriter::integer(int64_t value) {
  separate();
  char buf[24];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  out_.append(buf, end);
  return *this;
}

JsonWriter& JsonWriter::boolean(bool value) {
  separate();
  out_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::null() {
  separate();
  out_ += "null";
  return *this;
}

JsonWriter& JsonWriter::raw(std::string_view json) {
  separate();
  out_ += json;
  return *this;
}
