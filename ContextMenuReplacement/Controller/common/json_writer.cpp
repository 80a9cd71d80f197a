#include "common/json_writer.h"

#include <fmt/xchar.h>

namespace cmr {

std::wstring JsonQuote(std::wstring_view text) {
  std::wstring out;
  out.reserve(text.size() + 2);
  out += L'"';
  for (const wchar_t c : text) {
    switch (c) {
      case L'"': out += L"\\\""; break;
      case L'\\': out += L"\\\\"; break;
      case L'\n': out += L"\\n"; break;
      case L'\r': out += L"\\r"; break;
      case L'\t': out += L"\\t"; break;
      case L'\b': out += L"\\b"; break;
      case L'\f': out += L"\\f"; break;
      default:
        if (c < 0x20) {
          out += fmt::format(L"\\u{:04x}", static_cast<unsigned>(c));
        } else {
          out += c;
        }
    }
  }
  out += L'"';
  return out;
}

std::wstring JsonStringArray(const MessageList& items) {
  std::wstring out = L"[";
  for (size_t i = 0; i < items.size(); ++i) {
    if (i != 0) out += L',';
    out += JsonQuote(items[i]);
  }
  out += L']';
  return out;
}

}  // namespace cmr
