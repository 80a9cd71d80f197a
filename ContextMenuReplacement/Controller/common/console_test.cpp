#include "common/console.h"

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/unique_handle.h"
#include "common/win32.h"

namespace cmr {
namespace {

// Standard output goes to a file while the real console path formats and prints. Formats have
// their Microsoft meanings: the C99 reading of a wide "%s" would print only "C".
TEST(ConsoleOutput, LinesReachThePipeWholeAsUtf8CutAndEscaped) {
  const std::wstring path = JoinPath(ExecutableFolder(), L"console-capture.txt");
  {
    UniqueHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    const HANDLE saved = ::GetStdHandle(STD_OUTPUT_HANDLE);
    ::SetStdHandle(STD_OUTPUT_HANDLE, file.get());
    PrintLine(L"Publishing %s", L"C:\\Users\\J\u00fcrgen\\menu.json");
    PrintLine(L"%lu (%lu bytes): %zu, %d%% %X|%x|%llX", 4294967295u, 112u, size_t{3}, -2, 255u,
              255u, 0x1234ABCDull);
    PrintLine(L"a %s b");                               // more arguments named than given
    PrintLine(L"%s", std::wstring(3000, L'a'));         // a line is cut but still ended
    PrintLine(L"'%s'", L"\x1b[2J\r\n\x7f\x85z\u00e4");  // never a document's control characters raw
    // Each bound of each range alone (below space, delete, the C1 controls), and a NUL.
    for (const wchar_t c : L"\x01\x1f\x20\x7e\x7f\x80\x9f\xa0")
      PrintLine(L"%s", std::wstring(1, c));
    Print(L"%s|%zu", std::wstring(3000, L'b'), size_t{7});  // Print is never cut
    ::SetStdHandle(STD_OUTPUT_HANDLE, saved);
  }
  const Result<std::string> out = ReadWholeFile(path);
  ::DeleteFileW(path.c_str());
  ASSERT_TRUE(out.ok());
  EXPECT_EQ(out.value(),
            "Publishing C:\\Users\\J\xC3\xBCrgen\\menu.json\n"
            "4294967295 (112 bytes): 3, -2% FF|ff|1234ABCD\n"
            "a %s b [format error: argument not found]\n" +
                std::string(2047, 'a') + "\n'\\u001b[2J\\u000d\\u000a\\u007f\\u0085z\xC3\xA4'\n" +
                "\\u0001\n\\u001f\n \n~\n\\u007f\n\\u0080\n\\u009f\n\xC2\xA0\n\\u0000\n" +
                std::string(3000, 'b') + "|7");
}

}  // namespace
}  // namespace cmr
