#pragma once

#include <string>

#include "common/win32.h"

namespace cmr {

// Text of a Windows error code from the system's message table; "unable to get message from
// FormatMessage" when there is none. Trailing line breaks and blanks are trimmed so the text
// can stand inside a one-line message.
[[nodiscard]] std::wstring ErrorText(DWORD code);

}  // namespace cmr
