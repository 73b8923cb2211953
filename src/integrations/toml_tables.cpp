#include "integrations/toml_tables.h"

#include <cstdio>

namespace TomlTables {
namespace {

struct Line {
  size_t begin, end;      // end: past the line break (or the end of the text)
  std::string_view body;  // without the line break
};

std::vector<Line> lines(std::string_view text) {
  std::vector<Line> out;
  for (size_t at = 0; at < text.size();) {
    size_t nl = text.find('\n', at);
    size_t end = nl == std::string_view::npos ? text.size() : nl + 1;
    std::string_view body = text.substr(at, (nl == std::string_view::npos ? text.size() : nl) - at);
    if (body.ends_with('\r')) body.remove_suffix(1);
    out.push_back({at, end, body});
    at = end;
  }
  return out;
}

std::string_view trim(std::string_view s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string_view::npos) return {};
  size_t e = s.find_last_not_of(" \t");
  return s.substr(b, e - b + 1);
}

// The line without a comment that starts outside quotes.
std::string_view uncommented(std::string_view line) {
  char quote = 0;
  for (size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (quote) {
      if (c == '\\' && quote == '"')
        ++i;
      else if (c == quote)
        quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '#') {
      return line.substr(0, i);
    }
  }
  return line;
}

// "[[name]]" → 2, "[name]" or "[name.x]" → 1, another header → -1, not a header → 0.
int header(std::string_view line, std::string_view name) {
  std::string_view t = trim(uncommented(line));
  if (!t.starts_with('[')) return 0;
  const bool array = t.starts_with("[[") && t.ends_with("]]");
  std::string_view inner = trim(array ? t.substr(2, t.size() - 4) : t.substr(1, t.size() - 2));
  if (inner == name) return array ? 2 : 1;
  if (!array && inner.starts_with(std::string(name) + ".")) return 1;
  return -1;
}

std::optional<Json> value(std::string_view v) {
  v = trim(v);
  if (v.size() >= 2 && v.front() == '\'' && v.back() == '\'' && !v.starts_with("'''"))
    return Json(std::string(v.substr(1, v.size() - 2)));
  if (v.size() >= 2 && v.front() == '"' && v.back() == '"' && !v.starts_with("\"\"\"")) {
    std::string out;
    for (size_t i = 1; i + 1 < v.size(); ++i) {
      char c = v[i];
      if (c != '\\' || i + 2 >= v.size()) {
        out += c;
        continue;
      }
      char e = v[++i];
      switch (e) {
        case 'n':
          out += '\n';
          break;
        case 't':
          out += '\t';
          break;
        case 'r':
          out += '\r';
          break;
        default:
          out += e;
      }
    }
    return Json(out);
  }
  if (!v.empty() && v.find_first_not_of("+-0123456789_") == std::string_view::npos) {
    std::string digits;
    for (char c : v)
      if (c != '_') digits += c;
    try {
      return Json(std::stoll(digits));
    } catch (const std::exception&) {
    }
  }
  return std::nullopt;
}

std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\n') {
      out += "\\n";
    } else if (c < 0x20 || c == 0x7f) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

struct Block {
  size_t begin, end;  // the header's line through the last non-blank line before the next header
  Table table;
};

std::vector<Block> blocks(std::string_view text, std::string_view name) {
  std::vector<Block> out;
  std::optional<Block> open;
  for (const Line& l : lines(text)) {
    if (header(l.body, name) != 0) {
      if (open) out.push_back(std::move(*open));
      open.reset();
      if (header(l.body, name) == 2) open = Block{l.begin, l.end, {}};
      continue;
    }
    if (!open) continue;
    std::string_view body = trim(uncommented(l.body));
    if (body.empty()) continue;
    open->end = l.end;
    size_t eq = body.find('=');
    if (eq == std::string_view::npos) continue;
    std::string key(trim(body.substr(0, eq)));
    if (key.size() >= 2 && (key.front() == '"' || key.front() == '\''))
      key = key.substr(1, key.size() - 2);
    if (auto v = value(body.substr(eq + 1))) open->table.emplace_back(std::move(key), *v);
  }
  if (open) out.push_back(std::move(*open));
  return out;
}

}  // namespace

std::vector<Table> tables(std::string_view text, std::string_view name) {
  std::vector<Table> out;
  for (Block& b : blocks(text, name)) out.push_back(std::move(b.table));
  return out;
}

std::optional<std::string> conflict(std::string_view text, std::string_view name) {
  bool topLevel = true;
  size_t number = 0;
  for (const Line& l : lines(text)) {
    ++number;
    const int kind = header(l.body, name);
    if (kind == 1)
      return "line " + std::to_string(number) + ": " + std::string(name) +
             " is a table, not an array of tables";
    if (kind != 0) {
      topLevel = false;
      continue;
    }
    std::string_view body = trim(uncommented(l.body));
    size_t eq = body.find('=');
    if (topLevel && eq != std::string_view::npos && trim(body.substr(0, eq)) == name)
      return "line " + std::to_string(number) + ": " + std::string(name) +
             " is set to a value, not an array of tables";
  }
  return std::nullopt;
}

std::string strip(std::string_view text, std::string_view name, const IsOurs& ours, bool* removed) {
  std::string out;
  size_t at = 0;
  bool any = false;
  for (const Block& b : blocks(text, name)) {
    if (!ours(b.table)) continue;
    // The line break before the header came with the table (see append).
    size_t begin = b.begin > at && text[b.begin - 1] == '\n' ? b.begin - 1 : b.begin;
    out.append(text.substr(at, begin - at));
    at = b.end;
    any = true;
  }
  out.append(text.substr(at));
  if (removed) *removed = any;
  return out;
}

std::string append(std::string_view text, std::string_view name, const std::vector<Table>& add) {
  std::string out(text);
  // Each table starts with a line break: it ends the last line of a file without one, and
  // otherwise leaves a blank line before the header.
  for (const Table& t : add) {
    out += "\n[[" + std::string(name) + "]]\n";
    for (const auto& [key, v] : t)
      out += key + " = " + (v.is_string() ? quoted(v.get<std::string>()) : v.dump()) + "\n";
  }
  return out;
}

}  // namespace TomlTables
