#include "snapshot/custom_model_publisher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/file_io.h"
#include "common/unique_handle.h"

namespace cmr {
namespace {

std::string Record(uint32_t magic, uint32_t layout, uint32_t version) {
  std::string bytes(12, '\0');
  const uint32_t words[3] = {magic, layout, version};
  std::memcpy(bytes.data(), words, 12);
  return bytes;
}

TEST(CustomModelPublisher, ControlRecordAndNextVersion) {
  const std::string record = CustomModelControlRecord(5);
  EXPECT_EQ(record, Record(0x424E43D6, 18, 5));
  EXPECT_EQ(NextCustomModelVersion(record), 6u);
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D6, 18, 0)), 1u);
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D6, 18, 0xFFFFFFFF)), 1u);  // -1
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D6, 18, 0x80000000)), 1u);  // most negative
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D6, 18, 0x7FFFFFFF)), 0x80000000u);
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D5, 18, 9)), 1u);  // the config snapshot's magic
  EXPECT_EQ(NextCustomModelVersion(Record(0x424E43D6, 17, 9)), 1u);
  EXPECT_EQ(NextCustomModelVersion(record.substr(0, 11)), 1u);
  EXPECT_EQ(NextCustomModelVersion(""), 1u);
}

TEST(CustomModelPublisher, CleanUpKeepsCurrentAndPrevious) {
  wchar_t temp[MAX_PATH];
  ASSERT_NE(::GetTempPathW(MAX_PATH, temp), 0u);
  const std::wstring folder = JoinPath(temp, L"cmr-cleanup-test");
  ASSERT_EQ(EnsureDirectories(folder), static_cast<DWORD>(ERROR_SUCCESS));
  const std::vector<std::wstring> names = {
      L"custom-model-snapshot-3.bin",     L"custom-model-snapshot-4.bin",
      L"custom-model-snapshot-5.bin",     L"custom-model-snapshot-4x.bin",
      L"custom-model-snapshot-.bin",      L"custom-model-control.bin",
      L"custom-model-snapshot-1.bin.tmp", L"snapshot-3.bin"};
  for (const std::wstring& name : names)
    ASSERT_EQ(AtomicWriteFile(JoinPath(folder, name), "x"), L"");

  RemoveStaleCustomModelSnapshots(folder, 5);

  std::vector<std::wstring> left;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  ASSERT_TRUE(find);
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      left.emplace_back(entry.cFileName);
      (void)DeleteFileIfPresent(JoinPath(folder, entry.cFileName));
    }
  } while (::FindNextFileW(find.get(), &entry));
  std::sort(left.begin(), left.end());
  std::vector<std::wstring> expected(names.begin() + 1, names.end());
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(left, expected);

  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-0.bin", 1));
  EXPECT_TRUE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-007.bin", 9));
  EXPECT_TRUE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-99999999999.bin", 9));
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-+3.bin", 9));
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"Custom-model-snapshot-3.bin", 9));
}

}  // namespace
}  // namespace cmr
