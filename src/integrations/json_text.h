#pragma once
// JSON files edited as text: the user's bytes (key order, indentation, numbers as written,
// escapes, the final newline) stay exactly as they are wherever the value did not change, and
// changed parts are written in the file's own indentation.

#include <cstddef>
#include <string>
#include <string_view>

#include "core/json.h"

namespace JsonText {

// Deeper nesting is refused: no settings file needs it, and copying or comparing such a value
// would recurse that deep.
inline constexpr size_t kMaxDepth = JsonField::kMaxDepth;

struct Parsed {
  Json value;         // discarded when the text is not valid JSON
  std::string error;  // otherwise empty; e.g. "line 3: number overflow parsing '1E400'"
};

// Parses the text (a UTF-8 byte order mark is allowed). Never throws: every failure, numbers
// out of range included, becomes a one-line reason with the line it was found on.
Parsed parse(std::string_view text);

// The text rewritten so that its value is `after`, where `before` is the value `text` holds.
// Unchanged values keep their bytes; removed members and elements go with their comma; new
// members and elements follow the last existing one with the same line break, indentation and
// separators; changed containers are edited the same way inside. Numbers, strings and
// containers whose type changed are written anew. Throws Json::exception for text that is not
// valid UTF-8 in a value it has to write.
std::string patch(std::string_view text, const Json& before, const Json& after);

}  // namespace JsonText
