#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/overlay_pipeline.h"
#include "snapshot/overlay_staging.h"
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

TEST(CustomModelPublisher, ControlRecordAndCleanUp) {
  const std::string record = CustomModelControlRecord(5);
  EXPECT_EQ(record, Record(0x424E43D6, 18, 5));
  const std::pair<std::string, uint32_t> rows[] = {
      {Record(0x424E43D6, 18, 0x7FFFFFFF), 0x7FFFFFFF},  // largest positive
      {Record(0x424E43D6, 18, 0x80000000), 0},           // most negative
      {Record(0x424E43D5, 18, 9), 0},                    // the config snapshot's magic
      {Record(0x424E43D6, 17, 9), 0},
      {record.substr(0, 11), 0},
  };
  for (const auto& [bytes, announced] : rows)
    EXPECT_EQ(VersionOf(bytes), announced) << bytes.size();

  const std::wstring folder = JoinPath(ProductFolder(), L"clean-up-test");
  (void)EnsureDirectories(folder);
  for (const std::wstring& file : FilesIn(folder))
    (void)DeleteFileIfPresent(JoinPath(folder, file));
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
  for (const auto& [name, stale] : {std::pair{L"-7.bin", true},
                                    {L"-8.bin", false},
                                    {L"-007.bin", true},
                                    {L"-99999999999.bin", true}}) {
    EXPECT_EQ(IsStaleCustomModelSnapshot(L"custom-model-snapshot"s + name, 9), stale)
        << ToUtf8(name);
  }
  EXPECT_FALSE(IsStaleCustomModelSnapshot(L"Custom-model-snapshot-3.bin", 9));
}

// Node count of the published model; 0 when none is readable.
uint32_t PublishedNodes() {
  const Result<std::string> record = ReadWholeFile(CustomModelControlPath());
  const Result<std::string> image =
      ReadWholeFile(CustomModelSnapshotPath(record ? VersionOf(record.value()) : 0));
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
const std::string kRestamped =
    "{\n  \"document_kind\": \"overlay\",\n  \"schema_version\": 2,\n"
    "  \"baseline_version\": \"win11-shell-2026.11\"\n}\n";
// Published node counts: the baseline alone, with the saved overlay, with the candidate.
constexpr uint32_t kBaselineNodes = 177, kSavedNodes = 176, kCandidateNodes = 175;

using Operation = std::function<ModelPipelineResult(const ModelSources&, FileOperations&)>;
const Operation kPublish = [](auto& s, auto& f) { return PublishWithOverlay(s, true, f); };
const Operation kReset = [](auto& s, auto& f) { return ResetOverlay(s, std::nullopt, f); };
const Operation kReplace = [](auto& s, auto& f) { return ResetOverlay(s, kCandidate, f); };

// Each staged name of an ended process (id 0 is never a controller) goes at the next
// publication or reset; the same names of a live one (ours), and every other name, stay.
TEST(OverlayPipeline, StagedFilesOfEndedProcessesGoFirst) {
  const std::wstring folder = JoinPath(ProductFolder(), L"staging-test");
  const ModelSources sources{StagedFile(L"Schema\\custom-menu.schema.json"),
                             StagedFile(L"Content\\Menus\\create-organize.baseline.json"),
                             JoinPath(folder, L"o.json")};
  std::vector<std::wstring> kept = {L"o.json.bak", L"o.jsonx.0.tmp", L"o - work.json.0.tmp",
                                    L"o.json.candidate-0x", L"o.json.candidate-0.8.tmp"};
  std::vector<std::wstring> all = kept;
  for (const std::wstring& pid : {L"0"s, std::to_wstring(::GetCurrentProcessId())}) {
    all.insert(all.end(), {L"o.json." + pid + L".tmp", L"o.json.candidate-" + pid,
                           L"o.json.candidate-" + pid + L"." + pid + L".tmp"});
  }
  kept.insert(kept.end(), all.end() - 3, all.end());
  std::sort(kept.begin(), kept.end());
  for (const Operation& run : {kPublish, kReset}) {
    (void)EnsureDirectories(folder);
    for (const std::wstring& name : FilesIn(folder))
      (void)DeleteFileIfPresent(JoinPath(folder, name));
    // The overlay first: its own atomic write would take our live "o.json.<pid>.tmp".
    ASSERT_TRUE(AtomicWriteFile(sources.overlayPath, kSaved).ok());
    for (const std::wstring& name : all)
      ASSERT_TRUE(AtomicWriteFile(JoinPath(folder, name), "x").ok());
    EXPECT_TRUE(run(sources, SystemFiles()).published);
    (void)DeleteFileIfPresent(sources.overlayPath);
    EXPECT_EQ(FilesIn(folder), kept);
  }
}

// Every file step of each operation fails once; whatever step fails, the overlay holds its
// exact old bytes and the published model is the old state, or both are the new state.
TEST(OverlayPipeline, EveryFailingStepLeavesTheOldStateOrTheNew) {
  const struct {
    const char* name;
    std::optional<std::string> overlayBefore;  // nullopt: no overlay file
    Operation run;
    std::optional<std::string> overlayAfter;
    uint32_t nodesAfter;
  } rows[] = {
      {"publish-user", kSaved, kPublish, kSaved, kSavedNodes},
      {"publish-user re-stamping", kRestamp, kPublish, kRestamped, kBaselineNodes},
      {"reset", kSaved, kReset, std::nullopt, kBaselineNodes},
      {"reset without overlay", std::nullopt, kReset, std::nullopt, kBaselineNodes},
      {"candidate reset", kSaved, kReplace, kCandidate, kCandidateNodes},
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
      ASSERT_TRUE(ResetOverlay(sources, row.overlayBefore, SystemFiles()).published);
      if (row.overlayBefore) {
        ASSERT_TRUE(AtomicWriteFile(sources.overlayPath, *row.overlayBefore).ok());
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
      EXPECT_EQ(now, result.published ? row.overlayAfter : row.overlayBefore)
          << ToUtf8(files.Trace());
      if (failAt > static_cast<int>(files.steps.size())) break;  // no step failed: success
      if (failAt > 0) ++cases;
    }
  }
  EXPECT_EQ(cases, 21);
}

}  // namespace
}  // namespace cmr
