#include "common/data_paths.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(DataPaths, NamesUnderTheDataRoot) {
  const std::wstring product = DataRoot() + L"\\Orvanta\\Brenlowpack\\Ravelin";
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
  };
  for (const auto& row : rows) EXPECT_EQ(row.got, row.expected);
}

}  // namespace
}  // namespace cmr
