#include "state/registry_value.h"

#include <algorithm>
#include <vector>

namespace cmr {

std::optional<uint32_t> ReadDwordValue(HKEY key, const wchar_t* name) {
  DWORD type = 0;
  DWORD value = 0;
  DWORD size = sizeof(value);
  const LSTATUS result =
      ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
  if (result != ERROR_SUCCESS || type != REG_DWORD || size != sizeof(value)) return std::nullopt;
  return value;
}

std::optional<uint64_t> ReadQwordValue(HKEY key, const wchar_t* name) {
  DWORD type = 0;
  uint64_t value = 0;
  DWORD size = sizeof(value);
  const LSTATUS result =
      ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
  if (result != ERROR_SUCCESS || type != REG_QWORD || size != sizeof(value)) return std::nullopt;
  return value;
}

std::optional<std::wstring> ReadStringValue(HKEY key, const wchar_t* name, DWORD bufferBytes) {
  // The data is fetched whole and then cut, so a value longer than the buffer keeps its first
  // characters instead of coming back as "more data" with nothing in it.
  DWORD type = 0;
  DWORD size = 0;
  if (::RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
    return std::nullopt;
  }
  if (type != REG_SZ && type != REG_EXPAND_SZ) return std::nullopt;
  std::vector<wchar_t> buffer(std::max<DWORD>(size, bufferBytes) / sizeof(wchar_t) + 1, L'\0');
  size = static_cast<DWORD>((buffer.size() - 1) * sizeof(wchar_t));
  if (::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()),
                         &size) != ERROR_SUCCESS ||
      (type != REG_SZ && type != REG_EXPAND_SZ)) {
    return std::nullopt;
  }
  const size_t limit = bufferBytes / sizeof(wchar_t) - 1;
  std::wstring text(buffer.data());
  if (text.size() > limit) text.resize(limit);
  return text;
}

DWORD WriteDwordValue(HKEY key, const wchar_t* name, uint32_t value) {
  const DWORD data = value;
  return static_cast<DWORD>(::RegSetValueExW(key, name, 0, REG_DWORD,
                                             reinterpret_cast<const BYTE*>(&data), sizeof(data)));
}

DWORD WriteQwordValue(HKEY key, const wchar_t* name, uint64_t value) {
  return static_cast<DWORD>(::RegSetValueExW(key, name, 0, REG_QWORD,
                                             reinterpret_cast<const BYTE*>(&value), sizeof(value)));
}

DWORD WriteStringValue(HKEY key, const wchar_t* name, const std::wstring& value) {
  const DWORD bytes = static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t));
  return static_cast<DWORD>(
      ::RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()), bytes));
}

}  // namespace cmr
