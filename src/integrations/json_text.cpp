#include "integrations/json_text.h"

#include <algorithm>
#include <map>
#include <vector>

namespace JsonText {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// An array whose changed stretch before times after exceeds this is written anew instead of
// aligned element by element.
constexpr size_t kMaxAlignment = 1 << 20;
constexpr size_t kMaxReason = 160;

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

size_t skipSpace(std::string_view t, size_t i) {
  while (i < t.size() && isSpace(t[i])) ++i;
  return i;
}

// From an opening quote to just past the closing one.
size_t skipString(std::string_view t, size_t i) {
  for (++i; i < t.size(); ++i) {
    if (t[i] == '\\')
      ++i;
    else if (t[i] == '"')
      return i + 1;
  }
  return t.size();
}

// From the first byte of a value to just past it. Iterative, so nesting costs no stack.
size_t skipValue(std::string_view t, size_t i) {
  if (i >= t.size()) return i;
  if (t[i] == '"') return skipString(t, i);
  if (t[i] == '{' || t[i] == '[') {
    size_t depth = 0;
    while (i < t.size()) {
      char c = t[i];
      if (c == '"') {
        i = skipString(t, i);
        continue;
      }
      if (c == '{' || c == '[') {
        ++depth;
      } else if ((c == '}' || c == ']') && --depth == 0) {
        return i + 1;
      }
      ++i;
    }
    return i;
  }
  while (i < t.size() && !isSpace(t[i]) && t[i] != ',' && t[i] != ']' && t[i] != '}') ++i;
  return i;
}

// The deepest nesting of containers, and the line where it first goes past `cap`.
size_t tooDeepAt(std::string_view t, size_t cap) {
  size_t depth = 0, line = 1;
  for (size_t i = 0; i < t.size(); ++i) {
    char c = t[i];
    if (c == '"') {
      size_t end = skipString(t, i);
      line += static_cast<size_t>(std::count(t.begin() + static_cast<ptrdiff_t>(i),
                                             t.begin() + static_cast<ptrdiff_t>(end), '\n'));
      i = end - 1;
    } else if (c == '\n') {
      ++line;
    } else if (c == '{' || c == '[') {
      if (++depth > cap) return line;
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return 0;
}

// Records where nlohmann's parser gave up, with its reason.
struct ErrorSpot : Json::json_sax_t {
  size_t byte = 0;
  std::string reason;
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t position, const std::string&,
                   const nlohmann::detail::exception& e) override {
    byte = position;
    // "[json.exception.parse_error.101] parse error at line 3, column 1: syntax error ..." or
    // "[json.exception.out_of_range.406] number overflow parsing '1E400'".
    std::string_view what = e.what();
    if (auto close = what.find("] "); close != std::string_view::npos)
      what.remove_prefix(close + 2);
    if (what.starts_with("parse error at line "))
      if (auto colon = what.find(": "); colon != std::string_view::npos)
        what.remove_prefix(colon + 2);
    reason = what.substr(0, kMaxReason);
    return false;
  }
};

// Where a line starts, and its indentation.
std::string_view lineIndent(std::string_view t, size_t pos) {
  size_t newline = t.rfind('\n', pos == 0 ? 0 : pos - 1);
  size_t start = newline == std::string_view::npos || pos == 0 ? 0 : newline + 1;
  size_t end = start;
  while (end < pos && (t[end] == ' ' || t[end] == '\t')) ++end;
  return t.substr(start, end - start);
}

// One member or element as written: [lead] item [trail] followed by ',' or the closing bracket.
struct Item {
  size_t lead = 0, begin = 0;  // whitespace before it; the key's quote or the value
  size_t keyEnd = 0;           // past the key's closing quote (objects)
  size_t value = 0, end = 0;   // the value
  size_t trail = 0;            // the ',' or closing bracket after it
  std::string key;
};

struct Container {
  size_t open = 0, close = 0;  // the brackets
  std::vector<Item> items;
};

Container scan(std::string_view t, size_t open) {
  Container c;
  c.open = open;
  bool object = t[open] == '{';
  size_t i = open + 1;
  size_t first = skipSpace(t, i);
  if (first >= t.size() || t[first] == '}' || t[first] == ']') {
    c.close = first;
    return c;
  }
  while (i < t.size()) {
    Item item;
    item.lead = i;
    item.begin = item.value = skipSpace(t, i);
    if (object) {
      item.keyEnd = skipString(t, item.begin);
      Json key = Json::parse(t.substr(item.begin, item.keyEnd - item.begin), nullptr, false);
      if (key.is_string()) item.key = key.get<std::string>();
      item.value = skipSpace(t, skipSpace(t, item.keyEnd) + 1);  // past the ':'
    }
    item.end = skipValue(t, item.value);
    item.trail = skipSpace(t, item.end);
    c.items.push_back(std::move(item));
    if (c.items.back().trail >= t.size() || t[c.items.back().trail] != ',') break;
    i = c.items.back().trail + 1;
  }
  c.close = c.items.back().trail;
  return c;
}

// How the file lays out what it holds.
struct Style {
  bool pretty = true;       // containers spread over lines
  std::string unit = "  ";  // one level of indentation: blanks or tabs
  std::string newline = "\n";
};

Style detect(std::string_view t, size_t root) {
  Style s;
  if (root >= t.size() || (t[root] != '{' && t[root] != '[')) return s;
  size_t end = skipValue(t, root);
  Container c = scan(t, root);
  if (t.find("\r\n") != std::string_view::npos) s.newline = "\r\n";
  s.pretty = c.items.empty() || t.substr(root, end - root).find('\n') != std::string_view::npos;
  if (!c.items.empty()) {
    std::string_view lead = t.substr(c.items[0].lead, c.items[0].begin - c.items[0].lead);
    if (auto nl = lead.rfind('\n'); nl != std::string_view::npos) {
      std::string_view indent = lead.substr(nl + 1);
      if (!indent.empty() &&
          std::all_of(indent.begin(), indent.end(), [&](char ch) { return ch == indent[0]; }))
        s.unit = indent;
    }
  }
  return s;
}

// One member or element of the rewritten container.
struct Piece {
  std::string lead, body, trail;
};

class Patcher {
 public:
  Patcher(std::string_view text, Style style) : t_(text), style_(std::move(style)) {}

  void value(size_t begin, size_t end, const Json& before, const Json& after, std::string& out) {
    if (before == after) {
      out.append(t_.substr(begin, end - begin));
    } else if (before.is_object() && after.is_object() && t_[begin] == '{') {
      object(begin, before, after, out);
    } else if (before.is_array() && after.is_array() && t_[begin] == '[') {
      array(begin, before, after, out);
    } else {
      out += render(after, style_.pretty, lineIndent(t_, begin));
    }
  }

 private:
  std::string_view t_;
  Style style_;

  std::string text(size_t from, size_t to) const { return std::string(t_.substr(from, to - from)); }

  std::string render(const Json& v, bool pretty, std::string_view indent) const {
    if (!pretty) return v.dump();
    std::string dumped = v.dump(static_cast<int>(style_.unit.size()), style_.unit[0]);
    std::string out;
    out.reserve(dumped.size());
    for (char c : dumped) {
      if (c != '\n') {
        out += c;
        continue;
      }
      out += style_.newline;
      out += indent;
    }
    return out;
  }

  // How a new item is introduced: like the last one, or one level in from the container.
  struct Layout {
    std::string lead;
    bool pretty;
    std::string indent;
  };
  Layout newItems(const Container& c) const {
    if (!c.items.empty()) {
      const Item& last = c.items.back();
      std::string lead = text(last.lead, last.begin);
      auto nl = lead.rfind('\n');
      // A lone item on the bracket's line says nothing of separators: a blank, in a file
      // written with blanks.
      if (nl == std::string::npos && c.items.size() == 1 && style_.pretty) lead = " ";
      if (nl == std::string::npos) return {lead, false, ""};
      return {lead, true, lead.substr(nl + 1)};
    }
    std::string indent = std::string(lineIndent(t_, c.open)) + style_.unit;
    if (!style_.pretty) return {"", false, ""};
    return {style_.newline + indent, true, indent};
  }

  Piece kept(const Container& c, size_t i, std::string body) const {
    const Item& item = c.items[i];
    bool last = i + 1 == c.items.size();
    return {text(item.lead, item.begin), std::move(body), last ? "" : text(item.end, item.trail)};
  }

  void assemble(const Container& c, std::vector<Piece> pieces, std::string& out) const {
    out += t_[c.open];
    if (!pieces.empty()) {
      std::string tail;
      if (!c.items.empty()) {
        // The first position keeps its whitespace whichever item now stands there, and the
        // closing bracket keeps what stood before it.
        pieces[0].lead = text(c.items[0].lead, c.items[0].begin);
        tail = text(c.items.back().end, c.close);
      } else if (style_.pretty) {
        tail = style_.newline + std::string(lineIndent(t_, c.open));
      }
      for (size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) out += ',';
        out += pieces[i].lead;
        out += pieces[i].body;
        out += pieces[i].trail;
      }
      out += tail;
    }
    out += t_[c.close];
  }

  void object(size_t open, const Json& before, const Json& after, std::string& out) {
    Container c = scan(t_, open);
    // A repeated key: the parser kept the last one, so that is the one to edit.
    std::map<std::string_view, size_t> last;
    for (size_t i = 0; i < c.items.size(); ++i) last[c.items[i].key] = i;
    std::vector<Piece> pieces;
    for (size_t i = 0; i < c.items.size(); ++i) {
      const Item& item = c.items[i];
      auto now = after.find(item.key);
      if (now == after.end()) continue;  // every occurrence goes
      if (last[item.key] != i) {
        pieces.push_back(kept(c, i, text(item.begin, item.end)));
        continue;
      }
      std::string body = text(item.begin, item.value);
      value(item.value, item.end, before.at(item.key), *now, body);
      pieces.push_back(kept(c, i, std::move(body)));
    }
    Layout layout = newItems(c);
    std::string separator = c.items.empty() ? (layout.pretty ? ": " : ":")
                                            : text(c.items.back().keyEnd, c.items.back().value);
    for (const auto& [key, v] : after.items()) {
      if (before.contains(key)) continue;
      pieces.push_back({layout.lead,
                        Json(key).dump() + separator + render(v, layout.pretty, layout.indent),
                        ""});
    }
    assemble(c, std::move(pieces), out);
  }

  void array(size_t open, const Json& before, const Json& after, std::string& out) {
    Container c = scan(t_, open);
    size_t n = c.items.size(), m = after.size();
    if (n != before.size()) {
      out += render(after, style_.pretty, lineIndent(t_, open));
      return;
    }
    size_t head = 0, foot = 0;
    while (head < n && head < m && before[head] == after[head]) ++head;
    while (foot < n - head && foot < m - head && before[n - 1 - foot] == after[m - 1 - foot])
      ++foot;
    size_t rows = n - head - foot, cols = m - head - foot;
    if ((rows + 1) * (cols + 1) > kMaxAlignment) {
      out += render(after, style_.pretty, lineIndent(t_, open));
      return;
    }
    // Edit distance between the differing middles: an element is kept, changed in place,
    // removed, or new.
    std::vector<unsigned> cost((rows + 1) * (cols + 1));
    auto at = [&](size_t i, size_t j) -> unsigned& { return cost[i * (cols + 1) + j]; };
    for (size_t i = 0; i <= rows; ++i) at(i, 0) = static_cast<unsigned>(i);
    for (size_t j = 0; j <= cols; ++j) at(0, j) = static_cast<unsigned>(j);
    for (size_t i = 1; i <= rows; ++i)
      for (size_t j = 1; j <= cols; ++j) {
        unsigned change = before[head + i - 1] == after[head + j - 1] ? 0 : 1;
        at(i, j) = std::min({at(i - 1, j - 1) + change, at(i - 1, j) + 1, at(i, j - 1) + 1});
      }
    enum class Op { keep, remove, add };
    std::vector<std::pair<Op, std::pair<size_t, size_t>>> ops;
    for (size_t i = rows, j = cols; i > 0 || j > 0;) {
      if (i > 0 && j > 0 &&
          at(i, j) == at(i - 1, j - 1) + (before[head + i - 1] == after[head + j - 1] ? 0 : 1)) {
        ops.push_back({Op::keep, {head + --i, head + --j}});
      } else if (i > 0 && at(i, j) == at(i - 1, j) + 1) {
        ops.push_back({Op::remove, {head + --i, 0}});
      } else {
        ops.push_back({Op::add, {0, head + --j}});
      }
    }
    std::reverse(ops.begin(), ops.end());

    Layout layout = newItems(c);
    std::vector<Piece> pieces;
    auto keep = [&](size_t i, size_t j) {
      std::string body;
      value(c.items[i].value, c.items[i].end, before[i], after[j], body);
      pieces.push_back(kept(c, i, std::move(body)));
    };
    for (size_t k = 0; k < head; ++k) keep(k, k);
    for (const auto& [op, index] : ops) {
      if (op == Op::keep) keep(index.first, index.second);
      if (op == Op::add)
        pieces.push_back(
            {layout.lead, render(after[index.second], layout.pretty, layout.indent), ""});
    }
    for (size_t k = 0; k < foot; ++k) keep(n - foot + k, m - foot + k);
    assemble(c, std::move(pieces), out);
  }
};

size_t rootOf(std::string_view text) {
  size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  return skipSpace(text, start);
}

}  // namespace

Parsed parse(std::string_view text) {
  if (size_t line = tooDeepAt(text, kMaxDepth))
    return {Json(Json::value_t::discarded), "line " + std::to_string(line) + ": nested more than " +
                                                std::to_string(kMaxDepth) + " levels deep"};
  Json value = Json::parse(text, nullptr, false);
  if (!value.is_discarded()) return {std::move(value), ""};
  ErrorSpot spot;
  Json::sax_parse(text, &spot);
  // The parser stops just past the offending text; at the end of the input that is the last
  // line with something on it.
  size_t stop = std::min(spot.byte, text.find_last_not_of(" \t\r\n") + 1);
  auto line = 1 + std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(stop), '\n');
  return {std::move(value), "line " + std::to_string(line) + ": " + spot.reason};
}

std::string patch(std::string_view text, const Json& before, const Json& after) {
  size_t root = rootOf(text);
  size_t end = skipValue(text, root);
  std::string out(text.substr(0, root));
  Patcher(text, detect(text, root)).value(root, end, before, after, out);
  out.append(text.substr(end));
  return out;
}

}  // namespace JsonText
