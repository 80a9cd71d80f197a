#pragma once
// The daily log file: one per component and local date, UTF-8 with LF line ends, each line
// written whole under the logger's mutex.

#include <cstdint>
#include <string>
#include <string_view>

#include "common/win32.h"

namespace cmr {

enum class LogLevel : int { debug = 0, info = 1, warning = 2, error = 3, critical = 4 };

[[nodiscard]] const wchar_t* LogLevelName(int level) noexcept;

// "{stem} {YYYY-MM-DD}.log", the stem being the file stem, else the component, else the product.
[[nodiscard]] std::wstring LogFileName(std::wstring_view product, std::wstring_view component,
                                       std::wstring_view fileStem, const SYSTEMTIME& localDate);

// "[YYYY-MM-DD HH:MM:SS.fffffff] [P:pid T:tid] [LEVEL] " for a local time whose seconds carry
// `fraction100ns` (0..9999999) hundreds of nanoseconds.
[[nodiscard]] std::wstring FormatLogPrefix(const SYSTEMTIME& localTime, uint32_t fraction100ns,
                                           DWORD processId, DWORD threadId, int level);

// Opens (creating the folder) the day's log under the data root. Returns false when the folder
// or file cannot be opened; lines are then dropped.
[[nodiscard]] bool OpenLog(std::wstring_view product, std::wstring_view component,
                           std::wstring_view fileStem);
// Full path of the open log file; empty while closed.
[[nodiscard]] std::wstring OpenLogPath();
void WriteLogLine(LogLevel level, std::wstring_view text);

}  // namespace cmr
