#pragma once
// Reading JSON documents and writing the one-line JSON outputs of the verbs.

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"

namespace cmr {

struct JsonParseFailure {
  size_t offset = 0;         // byte offset into the text
  std::wstring description;  // RapidJSON's English text of the error code
};

// Parses UTF-8 text; line comments are accepted when `allowComments`. On failure returns false
// and fills `failure`; the document's content is then unspecified.
[[nodiscard]] bool ParseJsonText(std::string_view text, bool allowComments,
                                 rapidjson::Document& document, JsonParseFailure& failure);

// The text as a JSON string literal, quotes included. Non-ASCII characters stay as they are;
// quotes, backslashes and control characters are escaped.
[[nodiscard]] std::wstring JsonQuote(std::wstring_view text);
// A JSON array of strings, without spaces: ["a","b"].
[[nodiscard]] std::wstring JsonStringArray(const MessageList& items);

// The member's value, or null when `object` is not an object or has no such member.
[[nodiscard]] const rapidjson::Value* JsonMember(const rapidjson::Value& object, const char* key);
// Whether `value` is present and is exactly the string `text`.
[[nodiscard]] bool JsonStringIs(const rapidjson::Value* value, std::string_view text);
// The member's text when it is a string; empty otherwise.
[[nodiscard]] std::string_view JsonMemberText(const rapidjson::Value& object, const char* key);

// Member text of a UTF-8 DOM string value as UTF-16.
[[nodiscard]] std::wstring JsonWide(const rapidjson::Value& value);

}  // namespace cmr
