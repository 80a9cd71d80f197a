#include "common/log.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "tests/support/child_process.h"
#include "tests/support/todays_log.h"

namespace cmr {
namespace {

TEST(LogFormat, PrefixAndFileName) {
  const SYSTEMTIME t{2026, 11, 0, 12, 20, 27, 6, 0};
  const struct {
    std::wstring got, expected;
  } rows[] = {
      {FormatLogPrefix(t, 1234567, 4242, 77, 1),
       L"[2026-11-12 20:27:06.1234567] [P:4242 T:77] [INFO] "},
      {FormatLogPrefix(t, 5, 1, 2, 9), L"[2026-11-12 20:27:06.0000005] [P:1 T:2] [UNKNOWN] "},
      {LogFileName(L"Ravelin", L"Controller", L"", t), L"Controller 2026-11-12.log"},
      {LogFileName(L"Ravelin", L"", L"", t), L"Ravelin 2026-11-12.log"},
      {LogFileName(L"Ravelin", L"Controller", L"Hook", t), L"Hook 2026-11-12.log"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.got, row.expected);
}

// The tests below write the real day's log of this prefix's user, as the controller does.

std::vector<std::string> LinesContaining(const std::string& bytes, const std::string& marker) {
  std::istringstream in(bytes);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (line.find(marker) != std::string::npos) lines.push_back(line);
  }
  return lines;
}

TEST(LogFile, LineFormatAndUtf8InTheDaysFile) {
  ASSERT_TRUE(OpenLog(L"Ravelin", L"Controller", L""));
  EXPECT_NE(OpenLogPath().find(L"\\Orvanta\\Brenlowpack\\Ravelin\\Controller\\Logs\\Controller "),
            std::wstring::npos);
  const std::wstring marker = L"marker-" + std::to_wstring(::GetCurrentProcessId());
  WriteLogLine(LogLevel::warning, marker + L" Gr\u00fc\u00dfe \u2713");
  const std::vector<std::string> lines = LinesContaining(TodaysLog(), ToUtf8(marker));
  ASSERT_EQ(lines.size(), 1u);
  // U+00FC, U+00DF and U+2713 as UTF-8, and no carriage return.
  const std::regex shape(
      "\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{7}\\] \\[P:\\d+ T:\\d+\\] \\[WARNING\\] "
      "marker-\\d+ Gr\xC3\xBC\xC3\x9F"
      "e \xE2\x9C\x93");
  EXPECT_TRUE(std::regex_match(lines[0], shape)) << lines[0];
}

TEST(LogFile, TwoProcessesAppendWholeLines) {
  constexpr int kLinesPerWriter = 400;
  const std::string run = "run-" + std::to_string(::GetTickCount64());
  std::vector<UniqueHandle> children;
  for (const char* who : {"A", "B"}) {
    children.push_back(StartChild(JoinPath(ExecutableFolder(), L"log_writer.exe"),
                                  {FromUtf8(run + "-" + who), std::to_wstring(kLinesPerWriter)})
                           .process);
    ASSERT_TRUE(children.back());
  }
  for (const UniqueHandle& child : children) {
    ASSERT_EQ(::WaitForSingleObject(child.get(), 60000), WAIT_OBJECT_0);
  }
  const std::string log = TodaysLog();
  const std::regex whole(R"(\[[^\]]+\] \[P:\d+ T:\d+\] \[INFO\] run-\d+-[AB] x{180})");
  for (const char* who : {"A", "B"}) {
    const std::vector<std::string> lines = LinesContaining(log, run + "-" + who);
    EXPECT_EQ(lines.size(), static_cast<size_t>(kLinesPerWriter)) << who;
    for (const std::string& line : lines) ASSERT_TRUE(std::regex_match(line, whole)) << line;
  }
}

}  // namespace
}  // namespace cmr
