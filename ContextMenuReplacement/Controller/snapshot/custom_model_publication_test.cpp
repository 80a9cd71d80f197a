// Publishing the custom model: the control record, the order and clean-up of the files, and
// the overlay operations whose failure at any file step must leave the old state or the new.

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/overlay_pipeline.h"
#include "tests/support/scripted_files.h"
#include "tests/support/staged_install.h"

namespace cmr {
namespace {

using namespace std::string_literals;

std::string Record(uint32_t magic, uint32_t layout, uint32_t version) {
  const uint32_t words[3] = {magic, layout, version};
  return std::string(reinterpret_cast<const char*>(words), 12);
}

// The version a record announces; 0 when the next publication would start again at 1.
uint32_t VersionOf(std::string_view record) {
  uint32_t version = 0;
  return ReadCustomModelControl(record, version) ? version : 0;
}

uint32_t Announced(const std::wstring& folder) {
  const Result<std::string> record = ReadWholeFile(JoinPath(folder, kCustomModelControlName));
  return record ? VersionOf(record.value()) : 0;
}

// The folder's plain files, sorted.
std::vector<std::wstring> FilesIn(const std::wstring& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  for (bool more = static_cast<bool>(find); more; more = ::FindNextFileW(find.get(), &entry)) {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      names.emplace_back(entry.cFileName);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool LeftoverIn(const std::wstring& folder) {
  return std::ranges::any_of(FilesIn(folder), [](const std::wstring& name) {
    return name.find(L".candidate-") != std::wstring::npos || name.ends_with(L".tmp");
  });
}

TEST(CustomModelPublisher, ControlRecordAndAnnouncedVersion) {
  const std::string record = CustomModelControlRecord(5);
  EXPECT_EQ(record, Record(0x424E43D6, 18, 5));
  const std::pair<std::string, uint32_t> rows[] = {
      {Record(0x424E43D6, 18, 1), 1},
      {Record(0x424E43D6, 18, 0), 0},
      {Record(0x424E43D6, 18, 0x7FFFFFFF), 0x7FFFFFFF},  // largest positive
      {Record(0x424E43D6, 18, 0x80000000), 0},           // most negative
      {Record(0x424E43D5, 18, 9), 0},                    // the config snapshot's magic
      {Record(0x424E43D6, 17, 9), 0},
      {record.substr(0, 11), 0},
  };
  for (const auto& [bytes, announced] : rows)
    EXPECT_EQ(VersionOf(bytes), announced) << bytes.size();
}

// An empty folder below the temporary folder.
std::wstring Folder(const wchar_t* name) {
  wchar_t temp[MAX_PATH];
  EXPECT_NE(::GetTempPathW(MAX_PATH, temp), 0u);
  const std::wstring folder = JoinPath(JoinPath(temp, L"cmr-custom-publisher"), name);
  (void)EnsureDirectories(folder);
  for (const std::wstring& file : FilesIn(folder))
    (void)DeleteFileIfPresent(JoinPath(folder, file));
  return folder;
}

TEST(CustomModelPublisher, CleanUpKeepsCurrentAndPreviousAndOrphanedTemporariesGo) {
  const std::wstring folder = Folder(L"cleanup");
  // Process id 0 is never a publisher, so its temporaries are orphans; ours are not.
  std::vector<std::wstring> kept = {
      L"custom-model-snapshot-4.bin",
      L"custom-model-snapshot-4x.bin",
      L"custom-model-snapshot-.bin",
      L"custom-model-snapshot-1.bin.tmp",
      L"snapshot-3.bin",
      fmt::format(L"custom-model-snapshot-9.bin.{}.tmp", ::GetCurrentProcessId())};
  std::vector<std::wstring> all = kept;
  all.insert(all.end(), {L"custom-model-snapshot-3.bin", L"custom-model-control.bin.0.tmp"});
  for (const std::wstring& name : all)
    ASSERT_TRUE(AtomicWriteFile(JoinPath(folder, name), "x").ok());
  ASSERT_TRUE(
      AtomicWriteFile(JoinPath(folder, kCustomModelControlName), CustomModelControlRecord(4)).ok());
  const Result<uint32_t> published =
      PublishCustomModel(CompiledCustomModel{}, folder, SystemFiles());
  EXPECT_EQ(published.ok() ? published.value() : 0, 5u) << ToUtf8(published.message());
  kept.insert(kept.end(), {L"custom-model-control.bin", L"custom-model-snapshot-5.bin"});
  std::sort(kept.begin(), kept.end());
  EXPECT_EQ(FilesIn(folder), kept);

  // With version 9 current: 8 is the previous one, and only this exact spelling is ours.
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"custom-model-snapshot-0.bin", 1));
  for (const auto& [name, stale] : {std::pair{L"-7.bin", true},
                                    {L"-8.bin", false},
                                    {L"-007.bin", true},
                                    {L"-99999999999.bin", true},
                                    {L"-+3.bin", false}}) {
    EXPECT_EQ(IsStaleCustomModelSnapshot(L"custom-model-snapshot"s + name, 9), stale)
        << ToUtf8(name);
  }
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
      SCOPED_TRACE(testing::Message() << "dies " << dies << ", failing step " << failAt);
      const std::wstring folder = Folder(L"steps");
      for (int n = 0; n < 2; ++n)
        ASSERT_TRUE(PublishCustomModel(CompiledCustomModel{}, folder, SystemFiles()).ok());
      ScriptedFiles files;
      files.failAt = failAt;
      files.dieAtFailure = dies;
      const Result<uint32_t> published = PublishCustomModel(CompiledCustomModel{}, folder, files);
      EXPECT_EQ(files.steps, std::vector<std::wstring>(kSteps.begin(), kSteps.begin() + failAt));
      EXPECT_EQ(published.ok(), failAt == 3);  // the clean-up's failure is not the publication's
      const uint32_t announced = Announced(folder);
      EXPECT_EQ(announced, failAt == 3 ? 3u : 2u);
      const Result<std::string> image =
          ReadWholeFile(JoinPath(folder, fmt::format(L"custom-model-snapshot-{}.bin", announced)));
      ASSERT_TRUE(image.ok());
      EXPECT_EQ(image.value(), FlattenCustomModel(CompiledCustomModel{}, announced));
      EXPECT_FALSE(LeftoverIn(folder));
    }
  }
}

// Node count of the published model; 0 when none is readable.
uint32_t PublishedNodes() {
  const Result<std::string> image =
      ReadWholeFile(CustomModelSnapshotPath(Announced(PublishedFolder())));
  CustomModelView view;
  if (!image || !AttachCustomModel(image->data(), image->size(), view)) return 0;
  return view.nodeCount();
}

const std::string kHeader =
    R"({"document_kind":"overlay","schema_version":2,"baseline_version":"win11-shell-2026.11",)";
const std::string kHides = R"("node_overrides":[{"layout_id":"desktop-default","node_id":)";
const std::string kSaved = kHeader + kHides + R"("refresh","visibility":"hidden"}]})";
const std::string kCandidate = kHeader + kHides + R"("undo","visibility":"hidden"},)" +
                               R"({"layout_id":"desktop-default","node_id":"paste",)" +
                               R"("visibility":"hidden"}]})";
const std::string kRestamp = R"({"document_kind":"overlay","schema_version":2,)"
                             R"("baseline_version":"win11-cm-2026.08"})";
// Published node counts: the baseline alone, with the saved overlay, with the candidate.
constexpr uint32_t kBaselineNodes = 177, kSavedNodes = 176, kCandidateNodes = 175;

using Operation = std::function<ModelPipelineResult(const ModelSources&, FileOperations&)>;
const Operation kPublish = [](auto& s, auto& f) { return PublishWithOverlay(s, true, f); };
const Operation kReset = [](auto& s, auto& f) { return ResetOverlay(s, std::nullopt, f); };
const Operation kCandidateReset = [](auto& s, auto& f) { return ResetOverlay(s, kCandidate, f); };

// Every file step of each operation fails once; whatever step fails, the overlay holds its
// exact old bytes and the published model is the old state, or both are the new state.
TEST(OverlayPipeline, EveryFailingStepLeavesTheOldStateOrTheNew) {
  const struct {
    const char* name;
    std::optional<std::string> overlayBefore;  // nullopt: no overlay file
    Operation run;
    std::optional<std::string> overlayAfter;  // kRestamp: the re-stamped text
    uint32_t nodesAfter;
  } rows[] = {
      {"publish-user", kSaved, kPublish, kSaved, kSavedNodes},
      {"publish-user re-stamping", kRestamp, kPublish, kRestamp, kBaselineNodes},
      {"reset", kSaved, kReset, std::nullopt, kBaselineNodes},
      {"reset without overlay", std::nullopt, kReset, std::nullopt, kBaselineNodes},
      {"candidate reset", kSaved, kCandidateReset, kCandidate, kCandidateNodes},
  };
  const std::wstring folder = JoinPath(ProductFolder(), L"pipeline-test");
  ASSERT_TRUE(EnsureDirectories(folder).ok());
  const ModelSources sources{StagedFile(L"Schema\\custom-menu.schema.json"),
                             StagedFile(L"Content\\Menus\\create-organize.baseline.json"),
                             JoinPath(folder, L"overlay.json")};
  int cases = 0;
  for (const auto& row : rows) {
    const uint32_t nodesBefore = row.overlayBefore == kSaved ? kSavedNodes : kBaselineNodes;
    // failAt 0 fails the first read instead of a file step.
    for (int failAt = 0;; ++failAt) {
      SCOPED_TRACE(std::string(row.name) + ", failing step " + std::to_string(failAt));
      // The old overlay published, its stamp as it was (the publication may re-stamp it).
      ASSERT_TRUE(DeleteFileIfPresent(sources.overlayPath).ok());
      ModelSources before = sources;
      if (!row.overlayBefore) before.overlayPath.clear();
      for (const bool publish : {true, false}) {
        if (row.overlayBefore) {
          ASSERT_TRUE(AtomicWriteFile(sources.overlayPath, *row.overlayBefore).ok());
        }
        if (publish) {
          ASSERT_TRUE(PublishWithOverlay(before, true, SystemFiles()).published);
        }
      }

      ScriptedFiles files;
      files.failAt = failAt;
      files.unreadableReads = failAt == 0 ? 1 : 0;
      const ModelPipelineResult result = row.run(sources, files);
      const std::optional<std::string> now = ReadFileIfPresent(sources.overlayPath).value();
      // The one file a failure can leave: the staged candidate whose own removal failed.
      const bool stagedKept =
          !result.errors.empty() && result.errors[0].starts_with(L"Could not remove the staged");
      EXPECT_EQ(LeftoverIn(folder) || LeftoverIn(PublishedFolder()), stagedKept);
      if (stagedKept) (void)DeleteFileIfPresent(CandidateOverlayPath(sources.overlayPath));
      // A failing step may be one the operation survives (an unreadable control record
      // restarts the numbering): then it must have reached the new state whole.
      EXPECT_EQ(PublishedNodes(), result.published ? row.nodesAfter : nodesBefore)
          << ToUtf8(files.Trace());
      if (result.published && row.overlayAfter == kRestamp) {
        EXPECT_NE(now.value_or("").find("\"baseline_version\": \"win11-shell-2026.11\""),
                  std::string::npos);
      } else {
        EXPECT_EQ(now, result.published ? row.overlayAfter : row.overlayBefore)
            << ToUtf8(files.Trace());
      }
      if (failAt > static_cast<int>(files.steps.size())) break;  // no step failed: success
      if (failAt > 0) ++cases;
    }
  }
  std::printf("%d failure cases checked\n", cases);
  EXPECT_EQ(cases, 21);
}

}  // namespace
}  // namespace cmr
