#pragma once
// Data files kept beside the tests: expected bytes and input documents.

#include <string>

#include "common/text.h"

namespace cmr {

inline std::wstring GoldenFile(const std::wstring& name) {
  return FromUtf8(CMR_GOLDEN_DIR) + L"/" + name;
}

}  // namespace cmr
