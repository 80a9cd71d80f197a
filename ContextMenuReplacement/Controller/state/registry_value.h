#pragma once
// Typed reads and writes of single registry values, with the product's reading rules: a value
// counts only when it is stored with the expected type; anything else is "not there" and the
// caller falls back to its default. Reads never fail loudly.

#include <cstdint>
#include <optional>
#include <string>

#include "common/win32.h"

namespace cmr {

// The byte size of the zero-filled buffer that string values are read through: at most
// kStringValueBufferBytes / 2 - 1 characters survive.
inline constexpr DWORD kStringValueBufferBytes = 2048;

// REG_DWORD only.
[[nodiscard]] std::optional<uint32_t> ReadDwordValue(HKEY key, const wchar_t* name);
// REG_QWORD of exactly 8 bytes only.
[[nodiscard]] std::optional<uint64_t> ReadQwordValue(HKEY key, const wchar_t* name);
// REG_SZ or REG_EXPAND_SZ (never expanded), as if read through a zero-filled buffer of
// `bufferBytes`: the text ends at its first NUL and is cut to bufferBytes / 2 - 1 characters.
// `name` nullptr or "" is the key's default value.
[[nodiscard]] std::optional<std::wstring> ReadStringValue(
    HKEY key, const wchar_t* name, DWORD bufferBytes = kStringValueBufferBytes);

// Each returns the Win32 result of its one set-value call (ERROR_SUCCESS on success).
DWORD WriteDwordValue(HKEY key, const wchar_t* name, uint32_t value);
DWORD WriteQwordValue(HKEY key, const wchar_t* name, uint64_t value);
// REG_SZ including the terminating NUL.
DWORD WriteStringValue(HKEY key, const wchar_t* name, const std::wstring& value);

}  // namespace cmr
