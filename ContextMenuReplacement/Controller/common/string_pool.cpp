#include "common/string_pool.h"

#include <chrono>
#include <cstring>
#include <random>

namespace cmr {

namespace {

// A key drawn once per process: the strings come from a file anyone may write, and with a
// fixed hash they can be chosen to share one probe run, which makes interning quadratic (a few
// megabytes of such strings took seconds). Unknown to the writer, the key spreads them.
uint64_t ProcessKey() {
  static const uint64_t key = [] {
    std::random_device device;
    const uint64_t drawn = (static_cast<uint64_t>(device()) << 32) ^ device();
    return drawn ^
           static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }();
  return key;
}

// Each step multiplies the whole 64-bit state, and the finish mixes the high bits down, so the
// low bits that pick a slot depend on every bit of every unit (plain FNV-1a's low bits ignore
// the high bits of the units entirely).
uint64_t HashUnits(std::wstring_view text, uint64_t key) noexcept {
  uint64_t hash = key ^ (text.size() * 0x9E3779B97F4A7C15ull);
  for (const wchar_t unit : text) {
    hash = (hash ^ static_cast<uint16_t>(unit)) * 0xBF58476D1CE4E5B9ull;
    hash ^= hash >> 29;
  }
  hash ^= hash >> 31;
  hash *= 0x94D049BB133111EBull;
  hash ^= hash >> 32;
  return hash;
}

}  // namespace

StringPool::StringPool() : key_(ProcessKey()) {}

StringRef StringPool::Intern(std::wstring_view text) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "the pool stores UTF-16 units");
  // Readers take (0, 0) as the empty string wherever it points, so it never needs units of its
  // own; only as the very first string does it add its terminator, at 0.
  if (text.empty() && !units_.empty()) return {0, 0};
  if ((used_ + 1) * 2 > slots_.size()) Grow(slots_.empty() ? 64 : slots_.size() * 2);
  if (units_.capacity() == 0) units_.reserve(1024);
  const auto length = static_cast<uint32_t>(text.size());
  const uint64_t hash = HashUnits(text, key_);
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
