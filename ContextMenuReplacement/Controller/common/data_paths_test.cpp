#include "common/data_paths.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

TEST(DataPaths, KnownFolderFailureLeavesRootEmpty) {
  EXPECT_EQ(DataRootFromLookup(false, L"C:\\ignored"), L"");
  EXPECT_EQ(DataRootFromLookup(true, nullptr), L"");
  EXPECT_EQ(DataRootFromLookup(true, L"C:\\Users\\u\\AppData\\Local"),
            L"C:\\Users\\u\\AppData\\Local");
}

TEST(DataPaths, TreeUnderTheDataRoot) {
  const std::wstring root = DataRoot();
  ASSERT_FALSE(root.empty());
  EXPECT_EQ(ProductFolder(), root + L"\\Orvanta\\Brenlowpack\\Ravelin");
  EXPECT_EQ(ControlFilePath(), root + L"\\Orvanta\\Brenlowpack\\Ravelin\\published\\control.bin");
  EXPECT_EQ(SnapshotFilePath(7),
            root + L"\\Orvanta\\Brenlowpack\\Ravelin\\published\\snapshot-7.bin");
  EXPECT_EQ(SettingsFilePath(),
            root + L"\\Orvanta\\Brenlowpack\\Settings\\High Level Settings.json");
}

TEST(DataPaths, OverlayScopes) {
  EXPECT_EQ(OverlayFileName(L""), L"Context menu layout overrides.json");
  EXPECT_EQ(OverlayFileName(L"create-organize"), L"Context menu layout overrides.json");
  EXPECT_EQ(OverlayFileName(L"Create-Organize"),
            L"Context menu layout overrides - Create-Organize.json");
  EXPECT_EQ(OverlayFileName(L"work"), L"Context menu layout overrides - work.json");
}

TEST(DataPaths, DraftIdentifiers) {
  EXPECT_TRUE(IsValidDraftId(L"placement-draft-0123456789abcdef0123456789abcdef"));
  EXPECT_FALSE(IsValidDraftId(L"placement-draft-0123456789ABCDEF0123456789ABCDEF"));
  EXPECT_FALSE(IsValidDraftId(L"placement-draft-0123456789abcdef0123456789abcde"));    // 47
  EXPECT_FALSE(IsValidDraftId(L"placement-draft-0123456789abcdef0123456789abcdef0"));  // 49
  EXPECT_FALSE(IsValidDraftId(L"placement-draft-../outside"));
  EXPECT_EQ(DraftBaselinePath(L"placement-draft-0123456789ABCDEF0123456789ABCDEF"), L"");
  EXPECT_EQ(
      DraftBaselinePath(L"placement-draft-0123456789abcdef0123456789abcdef"),
      SettingsFolder() +
          L"\\Context menu draft baseline - placement-draft-0123456789abcdef0123456789abcdef.json");
}

}  // namespace
}  // namespace cmr
