#pragma once
// The path of a value inside a JSON document as the messages name it: profiles[1].items[2].

#include <fmt/xchar.h>

#include <string>
#include <string_view>

namespace cmr {

class JsonPath {
 public:
  explicit JsonPath(std::wstring_view root) : text_(root) {}

  [[nodiscard]] JsonPath Index(size_t index) const {
    return JsonPath(fmt::format(L"{}[{}]", text_, index));
  }
  [[nodiscard]] JsonPath Key(std::wstring_view key) const {
    return JsonPath(fmt::format(L"{}.{}", text_, key));
  }
  [[nodiscard]] const std::wstring& text() const noexcept { return text_; }

 private:
  std::wstring text_;
};

}  // namespace cmr

// Lets a path stand directly in a "{}" placeholder.
template <>
struct fmt::formatter<cmr::JsonPath, wchar_t> : fmt::formatter<std::wstring_view, wchar_t> {
  template <typename Context>
  auto format(const cmr::JsonPath& path, Context& context) const {
    return fmt::formatter<std::wstring_view, wchar_t>::format(path.text(), context);
  }
};
