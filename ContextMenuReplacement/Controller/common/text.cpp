#include "common/text.h"

#include <fmt/xchar.h>

#include "common/win32.h"

namespace cmr {

std::string ToUtf8(std::wstring_view text) {
  if (text.empty()) return {};
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<size_t>(size > 0 ? size : 0), '\0');
  if (size > 0) {
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size,
                          nullptr, nullptr);
  }
  return out;
}

std::wstring FromUtf8(std::string_view text) {
  if (text.empty()) return {};
  const int size =
      ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(static_cast<size_t>(size > 0 ? size : 0), L'\0');
  if (size > 0) {
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), size);
  }
  return out;
}

wchar_t FoldCase(wchar_t unit) noexcept {
  if (unit < 0x80) return (unit >= L'A' && unit <= L'Z') ? static_cast<wchar_t>(unit + 32) : unit;
  // CharLowerBuffW folds one unit in place with the system's invariant-enough table.
  wchar_t buffer[1] = {unit};
  ::CharLowerBuffW(buffer, 1);
  return buffer[0];
}

bool EqualsIgnoreCase(std::wstring_view a, std::wstring_view b) noexcept {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (FoldCase(a[i]) != FoldCase(b[i])) return false;
  }
  return true;
}

std::wstring EscapeControlCharacters(std::wstring_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (const wchar_t c : text) {
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0)) {
      out += fmt::format(L"\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace cmr
