#pragma once
// The UTF-16 string pool shared by both snapshot formats.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cmr {

// Offset and length in UTF-16 code units into a snapshot's pool; the unit after the string
// is zero.
struct StringRef {
  uint32_t offset = 0;
  uint32_t length = 0;
  friend bool operator==(const StringRef&, const StringRef&) = default;
};

// Appends each distinct string once, followed by one zero unit; an equal string (exact,
// case-sensitive) gets the offset of its first occurrence. The first string added is at 0.
class StringPool {
 public:
  StringRef Intern(std::wstring_view text);
  [[nodiscard]] const std::vector<char16_t>& units() const noexcept { return units_; }
  [[nodiscard]] size_t byteSize() const noexcept { return units_.size() * 2; }

 private:
  std::map<std::wstring, uint32_t, std::less<>> offsets_;
  std::vector<char16_t> units_;
};

}  // namespace cmr
