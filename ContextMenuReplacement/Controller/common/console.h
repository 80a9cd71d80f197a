#pragma once
// Console output of the verbs. Formats are printf-style with the Microsoft meaning in a wide
// format: "%s" takes a wide string. Arguments are checked at compile time instead of read
// through varargs, so a wide "%s" can never be taken for a narrow one.

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace cmr {

struct ConsoleArg {
  enum class Kind { text, signedNumber, unsignedNumber } kind;
  std::wstring_view text;
  int64_t signedValue = 0;
  uint64_t unsignedValue = 0;

  ConsoleArg(const wchar_t* value) : kind(Kind::text), text(value ? value : L"(null)") {}
  ConsoleArg(const std::wstring& value) : kind(Kind::text), text(value) {}
  ConsoleArg(std::wstring_view value) : kind(Kind::text), text(value) {}
  template <typename T, std::enable_if_t<std::is_integral_v<T> && std::is_signed_v<T>, int> = 0>
  ConsoleArg(T value) : kind(Kind::signedNumber), signedValue(value) {}
  template <typename T, std::enable_if_t<std::is_integral_v<T> && !std::is_signed_v<T>, int> = 0>
  ConsoleArg(T value) : kind(Kind::unsignedNumber), unsignedValue(value) {}
};

// The printf subset the program's texts use: %s, %d, %i, %u, %x, %X with the length modifiers
// h, l, ll, z, and %%. Pure; exposed for tests.
[[nodiscard]] std::wstring FormatConsoleText(std::wstring_view format,
                                             const std::vector<ConsoleArg>& args);

// Writes text to standard output as it is: UTF-16 to a console, UTF-8 to a pipe or file.
// Nothing is written when the process has no standard output. Output to a pipe or file is
// buffered until FlushStandardOutput, a full buffer or the process's exit.
void WriteStandardOutput(std::wstring_view text);
// Writes out what is buffered. Call it before waiting on anything, so that a reader of the
// pipe sees every line printed before the wait.
void FlushStandardOutput();

// The longest line PrintLine prints, in UTF-16 units, before its line feed.
inline constexpr size_t kPrintLineMaxUnits = 2047;

// Formats into a 2048-unit buffer (longer output is cut) and prints it with a line feed.
void PrintLineFormatted(std::wstring_view format, const std::vector<ConsoleArg>& args);
// Prints the formatted text whole, without adding a line feed.
void PrintFormatted(std::wstring_view format, const std::vector<ConsoleArg>& args);

template <typename... Args>
void PrintLine(std::wstring_view format, const Args&... args) {
  PrintLineFormatted(format, {ConsoleArg(args)...});
}

template <typename... Args>
void Print(std::wstring_view format, const Args&... args) {
  PrintFormatted(format, {ConsoleArg(args)...});
}

}  // namespace cmr
