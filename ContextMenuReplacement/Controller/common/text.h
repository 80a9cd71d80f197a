#pragma once
// Conversions between the program's UTF-16 text and the UTF-8 of files, JSON and pipes.

#include <string>
#include <string_view>

namespace cmr {

[[nodiscard]] std::string ToUtf8(std::wstring_view text);
[[nodiscard]] std::wstring FromUtf8(std::string_view text);

// Case folding of one UTF-16 unit for the case-insensitive comparisons of the program
// (modifier words, extensions, namespace identities).
[[nodiscard]] wchar_t FoldCase(wchar_t unit) noexcept;
[[nodiscard]] bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b) noexcept;

// The text with its control characters written as \u escapes, for quoting a value inside a
// one-line message.
[[nodiscard]] std::wstring EscapeControlCharacters(std::wstring_view text);

}  // namespace cmr
