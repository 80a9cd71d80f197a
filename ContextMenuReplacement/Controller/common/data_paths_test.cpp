#include "common/data_paths.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(DataPaths, NamesUnderTheDataRoot) {
  const std::wstring product = DataRoot() + L"\\Orvanta\\Brenlowpack\\Ravelin";
  const std::wstring draft = L"placement-draft-0123456789abcdef0123456789abcdef";
  ASSERT_NE(DataRoot(), L"");
  const struct {
    std::wstring got, expected;
  } rows[] = {
      // A failed known-folder lookup leaves the root empty rather than relative.
      {DataRootFromLookup(false, L"C:\\ignored"), L""},
      {DataRootFromLookup(true, nullptr), L""},
      {DataRootFromLookup(true, L"C:\\Users\\u\\AppData\\Local"), L"C:\\Users\\u\\AppData\\Local"},
      {ProductFolder(), product},
      {ControlFilePath(), product + L"\\published\\control.bin"},
      {SnapshotFilePath(7), product + L"\\published\\snapshot-7.bin"},
      {SettingsFilePath(),
       DataRoot() + L"\\Orvanta\\Brenlowpack\\Settings\\High Level Settings.json"},
      {OverlayFileName(L""), L"Context menu layout overrides.json"},
      {OverlayFileName(L"create-organize"), L"Context menu layout overrides.json"},
      {OverlayFileName(L"Create-Organize"),
       L"Context menu layout overrides - Create-Organize.json"},
      {DraftBaselinePath(draft),
       SettingsFolder() + L"\\Context menu draft baseline - " + draft + L".json"},
      // The prefix and 32 lower-case hex digits: one digit fewer or more is refused.
      {DraftBaselinePath(L"placement-draft-0123456789ABCDEF0123456789ABCDEF"), L""},
      {DraftBaselinePath(L"placement-draft-0123456789abcdef0123456789abcde"), L""},
      {DraftBaselinePath(L"placement-draft-0123456789abcdef0123456789abcdef0"), L""},
  };
  for (const auto& row : rows) EXPECT_EQ(row.got, row.expected);
}

}  // namespace
}  // namespace cmr
