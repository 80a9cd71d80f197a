#include "common/console.h"

#include <fmt/xchar.h>

#include "common/text.h"
#include "common/win32.h"

namespace cmr {

std::wstring FormatConsoleTextWith(std::wstring_view format, fmt::wprintf_args args) {
  try {
    return fmt::vsprintf(format, args);
  } catch (const fmt::format_error& error) {
    return fmt::format(L"{} [format error: {}]", format, FromUtf8(error.what()));
  }
}

void WriteStandardOutput(std::wstring_view text) {
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  if (output == nullptr || output == INVALID_HANDLE_VALUE || text.empty()) return;
  DWORD mode = 0;
  if (::GetConsoleMode(output, &mode)) {
    DWORD written = 0;
    ::WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  // Pipes and files get UTF-8 with the line feeds as written, which is what the Settings
  // application and scripts parse.
  const std::string bytes = ToUtf8(text);
  DWORD written = 0;
  ::WriteFile(output, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

void PrintLineText(std::wstring line) {
  if (line.size() > kPrintLineMaxUnits) line.resize(kPrintLineMaxUnits);
  line += L'\n';
  WriteStandardOutput(line);
}

}  // namespace cmr
