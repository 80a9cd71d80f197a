#pragma once
// Console output of the verbs. Formats are printf-style with the Microsoft meaning in a wide
// format: "%s" takes a wide string. Arguments are checked at compile time instead of read
// through varargs, so a wide "%s" can never be taken for a narrow one.

#include <fmt/printf.h>
#include <fmt/xchar.h>

#include <string>
#include <string_view>
#include <vector>

namespace cmr {

// The printf formats of the program's texts, through {fmt}'s type-checked printf: in a wide
// format "%s" takes a wide string (a narrow one does not compile), numbers take any of the
// length modifiers h, l, ll, z. A format that names more arguments than it is given is a
// programming error; its text then says so instead of printing a part. Exposed for tests.
[[nodiscard]] std::wstring FormatConsoleTextWith(std::wstring_view format, fmt::wprintf_args args);

template <typename... Args>
[[nodiscard]] std::wstring FormatConsoleText(std::wstring_view format, const Args&... args) {
  return FormatConsoleTextWith(format, fmt::make_wprintf_args(args...));
}

// Writes text to standard output as it is: UTF-16 to a console, UTF-8 to a pipe or file.
// Nothing is written when the process has no standard output. Each text goes out at once, so a
// reader of the pipe sees a progress line before the wait that follows it, unless an
// OutputBatch is open.
void WriteStandardOutput(std::wstring_view text);
// Writes out what a batch has gathered so far.
void FlushStandardOutput();

// While one is alive, output to a pipe or file is gathered and written in large blocks (one
// write per line made 100,000 warnings through a pipe take tens of seconds under Wine); what is
// gathered goes out when the last batch ends, when the block is full, or at exit. For loops
// that print many lines and wait on nothing.
class OutputBatch {
 public:
  OutputBatch();
  ~OutputBatch();
  OutputBatch(const OutputBatch&) = delete;
  OutputBatch& operator=(const OutputBatch&) = delete;
};

// The longest line PrintLine prints, in UTF-16 units, before its line feed.
inline constexpr size_t kPrintLineMaxUnits = 2047;

// Formats, cuts the text at kPrintLineMaxUnits units and prints it with a line feed.
void PrintLineText(std::wstring line);

template <typename... Args>
void PrintLine(std::wstring_view format, const Args&... args) {
  PrintLineText(FormatConsoleText(format, args...));
}

// A --json document: printed whole with a line feed, never cut, since a cut document no longer
// parses. Control characters are escaped as PrintLine escapes them.
void PrintJsonLine(std::wstring_view json);

// Prints each message on its own line behind two spaces, in one batch: how the verbs list the
// errors a step collected under the line that names the step.
void PrintIndentedLines(const std::vector<std::wstring>& messages);

// Prints the formatted text whole, without adding a line feed.
template <typename... Args>
void Print(std::wstring_view format, const Args&... args) {
  WriteStandardOutput(FormatConsoleText(format, args...));
}

}  // namespace cmr
