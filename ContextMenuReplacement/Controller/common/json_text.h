#pragma once
// Reading JSON documents.
//
// Every document the program reads (the menu file, the settings file, the schema, baselines and
// overlays) goes through ParseJsonText, which refuses what RapidJSON alone would let through
// or crash on: nesting deeper than kMaxJsonDepth, a NUL byte anywhere in the text, a
// "\u0000" inside a string, invalid UTF-8, an unpaired surrogate, and a key repeated within one
// object. A UTF-8 byte-order mark at the start is skipped, since Windows editors write one.

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"

namespace cmr {

// Deeper than any document the program ships or expects by an order of magnitude, and shallow
// enough that every recursive walk of a parsed document (the message writer, the layout merge)
// stays far from the end of the stack.
inline constexpr size_t kMaxJsonDepth = 128;

struct JsonParseFailure {
  size_t offset = 0;         // byte offset into the text, the byte-order mark included
  std::wstring description;  // RapidJSON's English text of the error code, or ours
};

// Parses UTF-8 text; line comments are accepted when `allowComments`. On failure returns false
// and fills `failure`; the document's content is then unspecified. Never recurses, so no text
// can exhaust the stack.
[[nodiscard]] bool ParseJsonText(std::string_view text, bool allowComments,
                                 rapidjson::Document& document, JsonParseFailure& failure);

}  // namespace cmr
