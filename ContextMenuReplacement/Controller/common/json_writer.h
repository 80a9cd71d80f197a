#pragma once
// Writing the one-line JSON outputs of the verbs.

#include <string>
#include <string_view>

#include "common/status.h"

namespace cmr {

// The text as a JSON string literal, quotes included. Non-ASCII characters stay as they are;
// quotes, backslashes and control characters are escaped.
[[nodiscard]] std::wstring JsonQuote(std::wstring_view text);
// A JSON array of strings, without spaces: ["a","b"].
[[nodiscard]] std::wstring JsonStringArray(const MessageList& items);

}  // namespace cmr
