#include "diagnostics/classic_icons.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(ClassicIcons, NestedVerbPathsDescendThroughShellKeys) {
  EXPECT_EQ(VerbKeyPath(L"*", L"open"), L"*\\shell\\open");
  EXPECT_EQ(VerbKeyPath(L"Directory\\Background", L"a\\b\\c"),
            L"Directory\\Background\\shell\\a\\shell\\b\\shell\\c");
}

TEST(ClassicIcons, IconLocationAlwaysNamesAnIndex) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"C:\\a.dll,-3", L"C:\\a.dll,-3"}, {L"C:\\a.dll,12", L"C:\\a.dll,12"},
      {L"C:\\a.ico", L"C:\\a.ico,0"},     {L"\"C:\\a b.exe\",1", L"C:\\a b.exe,1"},
      {L"C:\\x,y.exe", L"C:\\x,y.exe,0"}, {L"C:\\a.dll,-", L"C:\\a.dll,-,0"},
      {L"C:\\a.dll,", L"C:\\a.dll,,0"},
  };
  for (const auto& [stored, location] : rows) EXPECT_EQ(IconLocation(stored), location);
}

TEST(ClassicIcons, RequestLinesOfBothKindsAndTheirFaults) {
  std::wstring error;
  std::optional<IconRequest> handler =
      ParseIconRequest(L"handler\t{00021401-0000-0000-C000-000000000046}\tLink", 1, error);
  ASSERT_TRUE(handler);
  EXPECT_TRUE(handler->handler);
  EXPECT_EQ(handler->label, L"Link");
  std::optional<IconRequest> verb = ParseIconRequest(L"verb\t*\ta\\b", 2, error);
  ASSERT_TRUE(verb);
  EXPECT_EQ(verb->verbPath, L"a\\b");
  EXPECT_FALSE(ParseIconRequest(L"verb\t*\ta\tb", 3, error));
  EXPECT_EQ(error,
            L"Line 3 has 4 fields; a request is 'handler<TAB>{CLSID}<TAB>label' or "
            L"'verb<TAB>root<TAB>verb path'.");
  EXPECT_FALSE(ParseIconRequest(L"Verb\t*\ta", 4, error));
  EXPECT_EQ(error, L"Line 4 has the unknown request kind 'Verb'.");
}

}  // namespace
}  // namespace cmr
