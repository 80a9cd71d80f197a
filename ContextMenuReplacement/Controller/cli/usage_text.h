#pragma once

#include <string>

namespace cmr {

// The usage text, every line ending in a line feed.
[[nodiscard]] std::wstring UsageText();
void PrintUsage();

}  // namespace cmr
