#pragma once
// Reading members of a parsed JSON document without assuming its shape: every helper answers
// null or empty for a value of another type, so readers test one result instead of two.

#include <rapidjson/document.h>

#include <string>
#include <string_view>

#include "common/status.h"
#include "common/text.h"

namespace cmr {

// The member's value, or null when `object` is not an object or has no such member.
[[nodiscard]] const rapidjson::Value* JsonMember(const rapidjson::Value& object, const char* key);
// Whether `value` is present and is exactly the string `text`.
[[nodiscard]] bool JsonStringIs(const rapidjson::Value* value, std::string_view text);
// The member's text when it is a string; empty otherwise.
[[nodiscard]] std::string_view JsonMemberText(const rapidjson::Value& object, const char* key);

// Member text of a UTF-8 DOM string value as UTF-16.
[[nodiscard]] std::wstring JsonWide(const rapidjson::Value& value);
// The member's value when it is an array; null otherwise.
[[nodiscard]] const rapidjson::Value* JsonArrayMember(const rapidjson::Value& object,
                                                      const char* key);
// The member's value for changing it in place, or null as JsonMember.
[[nodiscard]] rapidjson::Value* JsonMutableMember(rapidjson::Value& object, const char* key);

}  // namespace cmr
