#include "common/console.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <cstdlib>

#include "common/json_text.h"
#include "common/text.h"
#include "common/win32.h"

namespace cmr {

namespace {

void AppendNumber(std::wstring& out, const ConsoleArg& arg, wchar_t conversion) {
  const bool hex = conversion == L'x' || conversion == L'X';
  if (arg.kind == ConsoleArg::Kind::text) {
    out += arg.text;
    return;
  }
  if (hex) {
    const uint64_t value = arg.kind == ConsoleArg::Kind::signedNumber
                               ? static_cast<uint64_t>(arg.signedValue)
                               : arg.unsignedValue;
    out += conversion == L'x' ? fmt::format(L"{:x}", value) : fmt::format(L"{:X}", value);
  } else if (conversion == L'u' && arg.kind == ConsoleArg::Kind::signedNumber) {
    out += fmt::format(L"{}", static_cast<uint64_t>(arg.signedValue));
  } else if (arg.kind == ConsoleArg::Kind::signedNumber) {
    out += fmt::format(L"{}", arg.signedValue);
  } else {
    out += fmt::format(L"{}", arg.unsignedValue);
  }
}

}  // namespace

std::wstring FormatConsoleText(std::wstring_view format, const std::vector<ConsoleArg>& args) {
  std::wstring out;
  out.reserve(format.size() + 32);
  size_t next = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    const wchar_t c = format[i];
    if (c != L'%' || i + 1 >= format.size()) {
      out += c;
      continue;
    }
    if (format[i + 1] == L'%') {
      out += L'%';
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < format.size() && (format[j] == L'l' || format[j] == L'h' || format[j] == L'z')) ++j;
    if (j >= format.size()) {
      out += format.substr(i);
      break;
    }
    const wchar_t conversion = format[j];
    if (conversion != L's' && conversion != L'd' && conversion != L'i' && conversion != L'u' &&
        conversion != L'x' && conversion != L'X') {
      out += format.substr(i, j - i + 1);
      i = j;
      continue;
    }
    if (next < args.size()) {
      const ConsoleArg& arg = args[next++];
      if (conversion == L's') {
        if (arg.kind == ConsoleArg::Kind::text) {
          out += arg.text;
        } else {
          AppendNumber(out, arg, L'd');
        }
      } else {
        AppendNumber(out, arg, conversion);
      }
    }
    i = j;
  }
  return out;
}

namespace {

// Output bound for a pipe or file is gathered here and written in large blocks: one WriteFile
// per line made 100,000 warnings through a pipe take tens of seconds. A console gets each text
// at once, since a person is reading it.
struct PendingOutput {
  std::string bytes;
  bool registered = false;
};

PendingOutput& Pending() {
  static PendingOutput pending;
  return pending;
}

constexpr size_t kFlushBytes = 64 * 1024;

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
  if (pending.bytes.size() >= kFlushBytes) FlushStandardOutput();
}

void PrintLineFormatted(std::wstring_view format, const std::vector<ConsoleArg>& args) {
  // A line shows a control character from a document as an escape: printed raw, a carriage
  // return or an escape sequence inside a key or value could rewrite what the user sees.
  std::vector<std::wstring> escaped;
  std::vector<ConsoleArg> shown = args;
  escaped.reserve(args.size());
  for (ConsoleArg& arg : shown) {
    if (arg.kind != ConsoleArg::Kind::text) continue;
    escaped.push_back(EscapeControlCharacters(arg.text));
    arg.text = escaped.back();
  }
  std::wstring line = FormatConsoleText(format, shown);
  if (line.size() > kPrintLineMaxUnits) line.resize(kPrintLineMaxUnits);
  line += L'\n';
  WriteStandardOutput(line);
}

void PrintFormatted(std::wstring_view format, const std::vector<ConsoleArg>& args) {
  WriteStandardOutput(FormatConsoleText(format, args));
}

}  // namespace cmr
