#pragma once
// Little-endian writing and bounds-checked reading of the binary images the Hook maps.

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace cmr {

[[nodiscard]] constexpr uint64_t Align8(uint64_t value) noexcept {
  return (value + 7) & ~uint64_t{7};
}

// A zero-filled image of fixed size; every store lands inside it or the program is wrong, so
// stores past the end are ignored rather than growing the image.
class ByteImageWriter {
 public:
  explicit ByteImageWriter(size_t size) : bytes_(size, '\0') {}

  // The images are little-endian, as is every machine the program runs on, so values are
  // copied as they are.
  static_assert(std::endian::native == std::endian::little);

  void PutU32(size_t offset, uint32_t value) noexcept {
    if (offset + 4 > bytes_.size()) return;
    std::memcpy(bytes_.data() + offset, &value, 4);
  }
  void PutBytes(size_t offset, const void* data, size_t size) noexcept {
    if (size == 0 || offset + size > bytes_.size()) return;
    std::memcpy(bytes_.data() + offset, data, size);
  }
  // UTF-16 units as little-endian pairs of bytes.
  void PutUnits(size_t offset, const char16_t* units, size_t count) noexcept {
    PutBytes(offset, units, count * sizeof(char16_t));
  }

  [[nodiscard]] const std::string& bytes() const noexcept { return bytes_; }
  [[nodiscard]] std::string take() noexcept { return std::move(bytes_); }

 private:
  std::string bytes_;
};

// Reads fields of an image. The first read outside the image makes the reader fail for good
// and every later read return 0, so a caller can read a whole row and check once.
class ByteImageReader {
 public:
  ByteImageReader(const void* data, size_t size) noexcept
      : data_(static_cast<const unsigned char*>(data)), size_(data ? size : 0) {}
  explicit ByteImageReader(std::string_view bytes) noexcept
      : ByteImageReader(bytes.data(), bytes.size()) {}

  [[nodiscard]] uint32_t U32(uint64_t offset) noexcept {
    if (failed_ || offset + 4 > size_) {
      failed_ = true;
      return 0;
    }
    const unsigned char* p = data_ + offset;
    return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
  }
  [[nodiscard]] char16_t Unit(uint64_t offset) noexcept {
    if (failed_ || offset + 2 > size_) {
      failed_ = true;
      return 0;
    }
    return static_cast<char16_t>(data_[offset] | (data_[offset + 1] << 8));
  }

  [[nodiscard]] bool failed() const noexcept { return failed_; }
  [[nodiscard]] size_t size() const noexcept { return size_; }
  [[nodiscard]] const unsigned char* data() const noexcept { return data_; }

 private:
  const unsigned char* data_;
  size_t size_;
  bool failed_ = false;
};

}  // namespace cmr
