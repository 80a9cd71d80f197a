#include "common/console.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "common/text.h"
#include "common/win32.h"

namespace cmr {

namespace {

// Output bound for a pipe or file while an OutputBatch is open. A console gets each text at
// once, since a person is reading it.
struct PendingOutput {
  std::string bytes;
  int batches = 0;
  bool registered = false;
};

PendingOutput& Pending() {
  static PendingOutput pending;
  return pending;
}

constexpr size_t kFlushBytes = size_t{64} * 1024;

void WriteAll(HANDLE output, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    const auto chunk = static_cast<DWORD>(std::min<size_t>(bytes.size(), 1u << 20));
    if (!::WriteFile(output, bytes.data(), chunk, &written, nullptr) || written == 0) return;
    bytes.remove_prefix(written);
  }
}

void FlushAtExit() {
  FlushStandardOutput();
}

}  // namespace

std::wstring FormatConsoleTextWith(std::wstring_view format, fmt::wprintf_args args) {
  try {
    return fmt::vsprintf(format, args);
  } catch (const fmt::format_error& error) {
    return fmt::format(L"{} [format error: {}]", format, FromUtf8(error.what()));
  }
}

void FlushStandardOutput() {
  PendingOutput& pending = Pending();
  if (pending.bytes.empty()) return;
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  if (output != nullptr && output != INVALID_HANDLE_VALUE) WriteAll(output, pending.bytes);
  pending.bytes.clear();
}

void WriteStandardOutput(std::wstring_view text) {
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  if (output == nullptr || output == INVALID_HANDLE_VALUE || text.empty()) return;
  DWORD mode = 0;
  if (::GetConsoleMode(output, &mode)) {
    FlushStandardOutput();
    DWORD written = 0;
    ::WriteConsoleW(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    return;
  }
  // Pipes and files get UTF-8 with the line feeds as written, which is what the Settings
  // application and scripts parse.
  PendingOutput& pending = Pending();
  if (!pending.registered) {
    pending.registered = true;
    std::atexit(FlushAtExit);
  }
  pending.bytes += ToUtf8(text);
  if (pending.batches == 0 || pending.bytes.size() >= kFlushBytes) FlushStandardOutput();
}

OutputBatch::OutputBatch() {
  ++Pending().batches;
}

OutputBatch::~OutputBatch() {
  if (--Pending().batches == 0) FlushStandardOutput();
}

void PrintIndentedLines(const std::vector<std::wstring>& messages) {
  const OutputBatch batch;
  for (const std::wstring& message : messages) PrintLine(L"  %s", message);
}

namespace {

// No line format of the program holds a control character, so any in the line came from a
// document or a path: printed raw, a carriage return or an escape sequence could rewrite what
// the user sees. They are shown as escapes instead, which inside a JSON string mean the same.
std::wstring WithoutControlCharacters(std::wstring line) {
  if (std::any_of(line.begin(), line.end(),
                  [](wchar_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); })) {
    line = EscapeControlCharacters(line);
  }
  return line;
}

}  // namespace

void PrintJsonLine(std::wstring_view json) {
  WriteStandardOutput(WithoutControlCharacters(std::wstring(json)) + L'\n');
}

void PrintLineText(std::wstring line) {
  line = WithoutControlCharacters(std::move(line));
  if (line.size() > kPrintLineMaxUnits) line.resize(kPrintLineMaxUnits);
  line += L'\n';
  WriteStandardOutput(line);
}

}  // namespace cmr
