#include "common/console.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(ConsoleFormat, WideStringArgumentPrintsWhole) {
  // The C99 reading of a wide "%s" would print only "P"; the program's texts need it whole.
  EXPECT_EQ(FormatConsoleText(L"Publishing %s", L"Pfad mit Umlaut \u00e4.json"),
            L"Publishing Pfad mit Umlaut \u00e4.json");
}

TEST(ConsoleFormat, NumbersAndLengthModifiers) {
  EXPECT_EQ(FormatConsoleText(L"Published version %lu (%lu bytes): %zu profile(s), %d%%",
                              4294967295u, 112u, size_t{3}, -2),
            L"Published version 4294967295 (112 bytes): 3 profile(s), -2%");
  EXPECT_EQ(FormatConsoleText(L"%X|%x|%llX", 255u, 255u, 0x1234ABCDull), L"FF|ff|1234ABCD");
}

TEST(ConsoleFormat, AMissingArgumentIsReportedNotDropped) {
  EXPECT_EQ(FormatConsoleText(L"a %s b"), L"a %s b [format error: argument not found]");
}

}  // namespace
}  // namespace cmr

#include "common/file_io.h"
#include "common/unique_handle.h"
#include "common/win32.h"

namespace cmr {
namespace {

// Sends standard output to a file while a test prints through the real console path.
std::string CaptureStandardOutput(void (*print)()) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring path = JoinPath(temp, L"cmr-console-capture.txt");
  std::string bytes;
  {
    UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const HANDLE saved = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, file.get());
    print();
    FlushStandardOutput();
    ::SetStdHandle(STD_OUTPUT_HANDLE, saved);
  }
  if (Result<std::string> read = ReadWholeFile(path)) bytes = read.value();
  ::DeleteFileW(path.c_str());
  return bytes;
}

TEST(ConsoleOutput, PrintLineCutsLongLinesAndStillEndsThem) {
  const std::string out = CaptureStandardOutput([] { PrintLine(L"%s", std::wstring(3000, L'a')); });
  EXPECT_EQ(out, std::string(2047, 'a') + "\n");
}

TEST(ConsoleOutput, WideArgumentsReachThePipeWholeAsUtf8) {
  const std::string out = CaptureStandardOutput([] {
    PrintLine(L"Publishing %s", L"C:\\Users\\J\u00fcrgen\\menu.json");
    // A line never carries a document's control characters raw.
    PrintLine(L"'%s'", L"\x1b[2J\rx");
    Print(L"%s|%zu", std::wstring(3000, L'b'), size_t{7});
  });
  EXPECT_EQ(out, "Publishing C:\\Users\\J\xC3\xBCrgen\\menu.json\n'\\u001b[2J\\u000dx'\n" +
                     std::string(3000, 'b') + "|7");
}

}  // namespace
}  // namespace cmr
