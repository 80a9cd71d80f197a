#include "cli/log.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(LogFormat, PrefixCarriesSevenFractionalDigits) {
  SYSTEMTIME t{};
  t.wYear = 2026;
  t.wMonth = 11;
  t.wDay = 12;
  t.wHour = 20;
  t.wMinute = 27;
  t.wSecond = 6;
  EXPECT_EQ(FormatLogPrefix(t, 1234567, 4242, 77, 1), L"[2026-11-12 20:27:06.1234567] [P:4242 T:77] [INFO] ");
  EXPECT_EQ(FormatLogPrefix(t, 5, 1, 2, 9), L"[2026-11-12 20:27:06.0000005] [P:1 T:2] [UNKNOWN] ");
}

TEST(LogFormat, FileNameFromStemComponentOrProduct) {
  SYSTEMTIME d{};
  d.wYear = 2026;
  d.wMonth = 1;
  d.wDay = 2;
  EXPECT_EQ(LogFileName(L"Ravelin", L"Controller", L"", d), L"Controller 2026-01-02.log");
  EXPECT_EQ(LogFileName(L"Ravelin", L"", L"", d), L"Ravelin 2026-01-02.log");
  EXPECT_EQ(LogFileName(L"Ravelin", L"Controller", L"Hook", d), L"Hook 2026-01-02.log");
}

TEST(LogFormat, LevelNames) {
  EXPECT_STREQ(LogLevelName(0), L"DEBUG");
  EXPECT_STREQ(LogLevelName(2), L"WARNING");
  EXPECT_STREQ(LogLevelName(3), L"ERROR");
  EXPECT_STREQ(LogLevelName(4), L"CRITICAL");
  EXPECT_STREQ(LogLevelName(-1), L"UNKNOWN");
}

}  // namespace
}  // namespace cmr
