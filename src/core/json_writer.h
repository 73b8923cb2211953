#pragma once
// A streaming writer for compact JSON. The snapshot is rebuilt on every push; writing it
// straight into one string avoids building a document tree first.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class JsonWriter {
 public:
  explicit JsonWriter(size_t reserve = 0) { out_.reserve(reserve); }
  // Writes into `buffer`, emptied first, reusing the memory it holds.
  explicit JsonWriter(std::string&& buffer) : out_(std::move(buffer)) { out_.clear(); }

  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();
  // An object key: one of the program's own names, plain ASCII written without escaping.
  JsonWriter& key(std::string_view name);
  // Text is written as valid UTF-8: invalid bytes become U+FFFD.
  JsonWriter& string(std::string_view value);
  JsonWriter& number(double value);
  JsonWriter& integer(int64_t value);
  JsonWriter& boolean(bool value);
  JsonWriter& null();
  // A value that is already serialised JSON.
  JsonWriter& raw(std::string_view json);

  template <class T>
  JsonWriter& field(std::string_view name, const T& value) {
    key(name);
    return write(value);
  }

  const std::string& text() const { return out_; }
  std::string take() { return std::move(out_); }

 private:
  JsonWriter& write(std::string_view v) { return string(v); }
  JsonWriter& write(const std::string& v) { return string(v); }
  JsonWriter& write(const char* v) { return string(v); }
  JsonWriter& write(bool v) { return boolean(v); }
  JsonWriter& write(double v) { return number(v); }
  JsonWriter& write(int64_t v) { return integer(v); }
  JsonWriter& write(int v) { return integer(v); }

  void separate();

  std::string out_;
  std::vector<uint8_t> first_;  // per open container: no member written yet
  bool afterKey_ = false;
};
