#include "diagnostics/classic_icons.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(ClassicIcons, IconLocationAlwaysNamesAnIndex) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {L"C:\\a.dll,-3", L"C:\\a.dll,-3"}, {L"C:\\a.dll,12", L"C:\\a.dll,12"},
      {L"C:\\a.ico", L"C:\\a.ico,0"},     {L"\"C:\\a b.exe\",1", L"C:\\a b.exe,1"},
      {L"C:\\x,y.exe", L"C:\\x,y.exe,0"}, {L"C:\\a.dll,-", L"C:\\a.dll,-,0"},
  };
  for (const auto& [stored, location] : rows) EXPECT_EQ(IconLocation(stored), location);
}

}  // namespace
}  // namespace cmr
