#include "snapshot/custom_model_publisher.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/file_io.h"
#include "common/unique_handle.h"
#include "tests/support/scripted_files.h"

namespace cmr {
namespace {

std::string Record(uint32_t magic, uint32_t layout, uint32_t version) {
  std::string bytes(12, '\0');
  const uint32_t words[3] = {magic, layout, version};
  std::memcpy(bytes.data(), words, 12);
  return bytes;
}

// The version a record announces; 0 when the next publication would start again at 1.
uint32_t VersionOf(std::string_view record) {
  uint32_t version = 0;
  return ReadCustomModelControl(record, version) ? version : 0;
}

TEST(CustomModelPublisher, ControlRecordAndAnnouncedVersion) {
  const std::string record = CustomModelControlRecord(5);
  EXPECT_EQ(record, Record(0x424E43D6, 18, 5));
  const struct {
    std::string record;
    uint32_t announced;
  } cases[] = {
      {record, 5},
      {Record(0x424E43D6, 18, 0), 0},
      {Record(0x424E43D6, 18, 0xFFFFFFFF), 0},           // -1
      {Record(0x424E43D6, 18, 0x80000000), 0},           // most negative
      {Record(0x424E43D6, 18, 0x7FFFFFFF), 0x7FFFFFFF},  // largest positive
      {Record(0x424E43D5, 18, 9), 0},                    // the config snapshot's magic
      {Record(0x424E43D6, 17, 9), 0},
      {record.substr(0, 11), 0},
      {"", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(VersionOf(c.record), c.announced) << c.record.size();
}

std::wstring Folder(const wchar_t* name) {
  wchar_t temp[MAX_PATH];
  EXPECT_NE(::GetTempPathW(MAX_PATH, temp), 0u);
  const std::wstring folder = JoinPath(JoinPath(temp, L"cmr-custom-publisher"), name);
  (void)EnsureDirectories(folder);
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  if (find) {
    do {
      if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        (void)DeleteFileIfPresent(JoinPath(folder, entry.cFileName));
      }
    } while (::FindNextFileW(find.get(), &entry));
  }
  return folder;
}

std::vector<std::wstring> FilesIn(const std::wstring& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  if (!find) return names;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) names.emplace_back(entry.cFileName);
  } while (::FindNextFileW(find.get(), &entry));
  std::sort(names.begin(), names.end());
  return names;
}

uint32_t Announced(const std::wstring& folder) {
  const Result<std::string> record = ReadWholeFile(JoinPath(folder, kCustomModelControlName));
  uint32_t version = 0;
  return record && ReadCustomModelControl(record.value(), version) ? version : 0;
}

TEST(CustomModelPublisher, CleanUpKeepsCurrentAndPreviousAndOrphanedTemporariesGo) {
  const std::wstring folder = Folder(L"cleanup");
  // Process id 0 is never a publisher, so its temporaries are orphans; ours are not.
  const std::wstring ours = fmt::format(L"custom-model-snapshot-9.bin.{}.tmp", ::GetCurrentProcessId());
  const std::vector<std::wstring> names = {
      L"custom-model-snapshot-3.bin",  L"custom-model-snapshot-4.bin",
      L"custom-model-snapshot-4x.bin", L"custom-model-snapshot-.bin",
      L"custom-model-snapshot-1.bin.tmp", L"custom-model-control.bin.0.tmp",
      ours, L"snapshot-3.bin"};
  for (const std::wstring& name : names) ASSERT_TRUE(AtomicWriteFile(JoinPath(folder, name), "x").ok());
  ASSERT_TRUE(AtomicWriteFile(JoinPath(folder, kCustomModelControlName), CustomModelControlRecord(4)).ok());

  const Result<uint32_t> published = PublishCustomModel(CompiledCustomModel{}, folder, SystemFiles());
  ASSERT_TRUE(published.ok()) << ToUtf8(published.message());
  EXPECT_EQ(published.value(), 5u);

  std::vector<std::wstring> expected = {
      L"custom-model-control.bin",     L"custom-model-snapshot-4.bin",
      L"custom-model-snapshot-4x.bin", L"custom-model-snapshot-5.bin",
      L"custom-model-snapshot-.bin",   L"custom-model-snapshot-1.bin.tmp", ours, L"snapshot-3.bin"};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(FilesIn(folder), expected);

  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-0.bin", 1));
  EXPECT_TRUE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-007.bin", 9));
  EXPECT_TRUE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-99999999999.bin", 9));
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-+3.bin", 9));
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"Custom-model-snapshot-3.bin", 9));
}

// The snapshot is whole on disk before the control record names it: a failure, or a process that
// dies, at any step leaves the announced version as it was or moves it to a complete snapshot.
TEST(CustomModelPublisher, EveryStepFailsOrDiesSafely) {
  const std::vector<std::wstring> kSteps = {L"write custom-model-snapshot-3.bin",
                                            L"write custom-model-control.bin",
                                            L"delete custom-model-snapshot-1.bin"};
  for (const bool dies : {false, true}) {
    for (int failAt = 1; failAt <= 3; ++failAt) {
      const std::wstring folder = Folder(L"steps");
      for (int n = 0; n < 2; ++n) ASSERT_TRUE(PublishCustomModel(CompiledCustomModel{}, folder, SystemFiles()).ok());
      ScriptedFiles files;
      files.failAt = failAt;
      files.dieAtFailure = dies;
      const Result<uint32_t> published = PublishCustomModel(CompiledCustomModel{}, folder, files);
      EXPECT_EQ(files.steps, std::vector<std::wstring>(kSteps.begin(), kSteps.begin() + failAt));
      // The clean-up's failure is not the publication's.
      EXPECT_EQ(published.ok(), failAt == 3) << failAt;
      const uint32_t announced = Announced(folder);
      EXPECT_EQ(announced, failAt == 3 ? 3u : 2u) << failAt;
      const Result<std::string> image =
          ReadWholeFile(JoinPath(folder, fmt::format(L"custom-model-snapshot-{}.bin", announced)));
      ASSERT_TRUE(image.ok());
      EXPECT_EQ(image.value(), FlattenCustomModel(CompiledCustomModel{}, announced));
      for (const std::wstring& name : FilesIn(folder)) EXPECT_FALSE(name.ends_with(L".tmp")) << name;
    }
  }
}

}  // namespace
}  // namespace cmr
