#pragma once
// The UTF-16 string pool shared by both snapshot formats.

#include <cstdint>
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
// The empty string is always (0, 0).
// The index holds offsets into the pool itself, so interning a string costs no allocation
// beyond the pool's own growth (configurations near the size limit intern tens of thousands).
class StringPool {
 public:
  StringPool();
  StringRef Intern(std::wstring_view text);
  // Room for at least this many units and strings, so that a pool whose size is known in
  // advance is allocated once rather than grown step by step.
  void Reserve(size_t units, size_t strings);
  [[nodiscard]] const std::vector<char16_t>& units() const noexcept { return units_; }
  [[nodiscard]] size_t byteSize() const noexcept { return units_.size() * 2; }

 private:
  struct Slot {
    uint64_t hash = 0;
    uint32_t offset = 0;
    uint32_t length = kEmpty;
  };
  static constexpr uint32_t kEmpty = 0xFFFFFFFF;

  void Grow(size_t slotCount);

  std::vector<char16_t> units_;
  std::vector<Slot> slots_;  // open addressing, linear probing; size is a power of two
  size_t used_ = 0;
  uint64_t key_;  // the hash's key, drawn once per process
};

}  // namespace cmr
