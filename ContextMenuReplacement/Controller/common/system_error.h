#pragma once

#include <string>

#include "common/status.h"
#include "common/win32.h"

namespace cmr {

// Text of a Windows error code from the system's message table; "unable to get message from
// FormatMessage" when there is none. Trailing line breaks and blanks are trimmed so the text
// can stand inside a one-line message.
[[nodiscard]] std::wstring ErrorText(DWORD code);

// "<what>: <system text> (error <code>)."; `what` names the step and its object, for example
// "Could not open 'C:\x\control.bin'".
[[nodiscard]] std::wstring Win32Message(std::wstring_view what, DWORD code);
[[nodiscard]] Status Win32Failure(std::wstring_view what, DWORD code);

// "<what>: <system text>." The system's texts mostly end in a full stop of their own; a sentence
// never ends in two. Every message that puts a system text at its end goes through here.
[[nodiscard]] std::wstring SystemTextSentence(std::wstring_view what, DWORD code);

}  // namespace cmr
