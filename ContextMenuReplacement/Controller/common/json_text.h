#pragma once
// Reading JSON documents and writing the one-line JSON outputs of the verbs.
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

// The text as a JSON string literal, quotes included. Non-ASCII characters stay as they are;
// quotes, backslashes and control characters are escaped.
[[nodiscard]] std::wstring JsonQuote(std::wstring_view text);
// A JSON array of strings, without spaces: ["a","b"].
[[nodiscard]] std::wstring JsonStringArray(const MessageList& items);
// The text with its control characters written as \u escapes, for quoting a value inside a
// one-line message.
[[nodiscard]] std::wstring EscapeControlCharacters(std::wstring_view text);

// The member's value, or null when `object` is not an object or has no such member.
[[nodiscard]] const rapidjson::Value* JsonMember(const rapidjson::Value& object, const char* key);
// Whether `value` is present and is exactly the string `text`.
[[nodiscard]] bool JsonStringIs(const rapidjson::Value* value, std::string_view text);
// The member's text when it is a string; empty otherwise.
[[nodiscard]] std::string_view JsonMemberText(const rapidjson::Value& object, const char* key);

// Member text of a UTF-8 DOM string value as UTF-16.
[[nodiscard]] std::wstring JsonWide(const rapidjson::Value& value);

// The references a schema may hold, and the links of one chain of references to references.
// The shipped schema holds 47 references and no chain longer than one link; RapidJSON follows a
// chain by recursion and looks up each reference linearly, so both are bounded far above that.
inline constexpr size_t kMaxSchemaReferences = 1024;
inline constexpr size_t kMaxSchemaReferenceChain = 32;
// The schemas that references and "allOf", "anyOf", "oneOf" and "not" apply to one value: the
// validator runs them all side by side. The shipped schema applies at most a handful.
inline constexpr size_t kMaxSchemasPerValue = 1024;

// Checks every "$ref" of a JSON schema before a validator is built from it: each must be a
// pointer into the schema itself ("#" or "#/...") that resolves, no chain of references may lead
// back to where it started, no chain may be longer than kMaxSchemaReferenceChain links, there
// may be at most kMaxSchemaReferences, and no schema may apply more than kMaxSchemasPerValue
// schemas to one value. Returns a whole-sentence message naming the reference
// where the schema failed, or empty when sound.
[[nodiscard]] std::wstring SchemaReferenceProblem(const rapidjson::Value& schema);

}  // namespace cmr
