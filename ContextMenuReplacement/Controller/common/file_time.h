#pragma once
// FILETIME as the one 64-bit count of 100-nanosecond intervals since 1601 that the state key,
// the log and the comparisons of process and file times use.

#include <cstdint>

#include "common/win32.h"

namespace cmr {

[[nodiscard]] constexpr uint64_t FileTimeToInteger(const FILETIME& time) noexcept {
  return (uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

}  // namespace cmr
