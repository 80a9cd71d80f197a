#include "common/string_pool.h"

#include <cstring>

namespace cmr {

namespace {

uint64_t HashUnits(std::wstring_view text) noexcept {
  uint64_t hash = 1469598103934665603ull;  // FNV-1a
  for (const wchar_t unit : text) {
    hash = (hash ^ static_cast<uint16_t>(unit)) * 1099511628211ull;
  }
  return hash;
}

}  // namespace

StringRef StringPool::Intern(std::wstring_view text) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "the pool stores UTF-16 units");
  if ((used_ + 1) * 2 > slots_.size()) Grow(slots_.empty() ? 64 : slots_.size() * 2);
  if (units_.capacity() == 0) units_.reserve(1024);
  const auto length = static_cast<uint32_t>(text.size());
  const uint64_t hash = HashUnits(text);
  const size_t mask = slots_.size() - 1;
  for (size_t i = static_cast<size_t>(hash) & mask;; i = (i + 1) & mask) {
    Slot& slot = slots_[i];
    if (slot.length == kEmpty) {
      slot = {hash, static_cast<uint32_t>(units_.size()), length};
      ++used_;
      units_.insert(units_.end(), text.begin(), text.end());
      units_.push_back(u'\0');
      return {slot.offset, length};
    }
    if (slot.hash == hash && slot.length == length &&
        std::memcmp(units_.data() + slot.offset, text.data(), length * sizeof(char16_t)) == 0) {
      return {slot.offset, length};
    }
  }
}

void StringPool::Reserve(size_t units, size_t strings) {
  units_.reserve(units);
  size_t wanted = 64;
  while (wanted < strings * 2) wanted *= 2;
  if (wanted > slots_.size()) Grow(wanted);
}

void StringPool::Grow(size_t slotCount) {
  std::vector<Slot> old = std::move(slots_);
  slots_.assign(slotCount, Slot{});
  const size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.length == kEmpty) continue;
    size_t i = static_cast<size_t>(slot.hash) & mask;
    while (slots_[i].length != kEmpty) i = (i + 1) & mask;
    slots_[i] = slot;
  }
}

}  // namespace cmr
