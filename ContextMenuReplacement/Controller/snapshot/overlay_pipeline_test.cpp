#include "snapshot/overlay_pipeline.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iostream>

#include "common/data_paths.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"
#include "tests/support/scripted_files.h"
#include "tests/support/staged_install.h"

namespace cmr {
namespace {

// Node count of the published model; 0 when none is readable.
uint32_t PublishedNodes() {
  const Result<std::string> control = ReadWholeFile(CustomModelControlPath());
  uint32_t version = 0;
  if (!control || !ReadCustomModelControl(control.value(), version)) return 0;
  const Result<std::string> image = ReadWholeFile(CustomModelSnapshotPath(version));
  CustomModelView view;
  if (!image || !AttachCustomModel(image->data(), image->size(), view)) return 0;
  return view.nodeCount();
}

bool LeftoverIn(const std::wstring& folder) {
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  if (!find) return false;
  do {
    const std::wstring name = entry.cFileName;
    if (name.find(L".candidate-") != std::wstring::npos || name.ends_with(L".tmp")) return true;
  } while (::FindNextFileW(find.get(), &entry));
  return false;
}

const std::string kHeader =
    R"({"document_kind":"overlay","schema_version":2,"baseline_version":"win11-shell-2026.11",)";
const std::string kHides = R"("node_overrides":[{"layout_id":"desktop-default","node_id":)";
// Published node counts: the baseline alone, with the saved overlay, with the candidate.
const std::string kSaved = kHeader + kHides + R"("refresh","visibility":"hidden"}]})";
const std::string kCandidate = kHeader + kHides + R"("undo","visibility":"hidden"},)" +
                               R"({"layout_id":"desktop-default","node_id":"paste",)" +
                               R"("visibility":"hidden"}]})";
constexpr uint32_t kBaselineNodes = 177, kSavedNodes = 176, kCandidateNodes = 175;

struct Operation {
  const char* name;
  std::optional<std::string> overlayBefore;  // nullopt: no overlay file
  std::function<ModelPipelineResult(const ModelSources&, FileOperations&)> run;
  std::optional<std::string> overlayAfter;
  uint32_t nodesAfter;
};

// Every file step of each operation fails once; whatever step fails, the overlay holds its
// exact old bytes and the published model is the old state, or both are the new state.
TEST(OverlayPipeline, EveryFailingStepLeavesTheOldStateOrTheNew) {
  const std::string restamp = R"({"document_kind":"overlay","schema_version":2,)"
                              R"("baseline_version":"win11-cm-2026.08"})";
  const Operation operations[] = {
      {"publish-user", kSaved, [](auto& s, auto& f) { return PublishWithOverlay(s, true, f); },
       kSaved, kSavedNodes},
      {"publish-user re-stamping", restamp,
       [](auto& s, auto& f) { return PublishWithOverlay(s, true, f); }, std::nullopt,
       kBaselineNodes},
      {"reset", kSaved, [](auto& s, auto& f) { return ResetOverlay(s, std::nullopt, f); },
       std::nullopt, kBaselineNodes},
      {"reset without overlay", std::nullopt,
       [](auto& s, auto& f) { return ResetOverlay(s, std::nullopt, f); }, std::nullopt,
       kBaselineNodes},
      {"candidate reset", kSaved, [](auto& s, auto& f) { return ResetOverlay(s, kCandidate, f); },
       kCandidate, kCandidateNodes},
  };
  const std::wstring folder = JoinPath(ProductFolder(), L"pipeline-test");
  ASSERT_TRUE(EnsureDirectories(folder).ok());
  const ModelSources sources{StagedFile(L"Schema\\custom-menu.schema.json"),
                             StagedFile(L"Content\\Menus\\create-organize.baseline.json"),
                             JoinPath(folder, L"overlay.json")};
  int cases = 0, total = 0;
  for (const Operation& operation : operations) {
    const uint32_t nodesBefore = operation.overlayBefore == kSaved ? kSavedNodes : kBaselineNodes;
    // failAt 0 fails the first read instead of a file step.
    for (int failAt = 0;; ++failAt) {
      SCOPED_TRACE(std::string(operation.name) + ", failing step " + std::to_string(failAt));
      // The state before: the old overlay published (its stamp as it was, so the overlay is
      // written after the publication, which may re-stamp it).
      ASSERT_TRUE(DeleteFileIfPresent(sources.overlayPath).ok());
      ModelSources before = sources;
      if (operation.overlayBefore) {
        ASSERT_TRUE(AtomicWriteFile(sources.overlayPath, *operation.overlayBefore).ok());
      } else {
        before.overlayPath.clear();
      }
      ASSERT_TRUE(PublishWithOverlay(before, true, SystemFiles()).published);
      if (operation.overlayBefore) {
        ASSERT_TRUE(AtomicWriteFile(sources.overlayPath, *operation.overlayBefore).ok());
      }

      ScriptedFiles files;
      files.failAt = failAt;
      files.unreadableReads = failAt == 0 ? 1 : 0;
      const ModelPipelineResult result = operation.run(sources, files);
      const std::optional<std::string> now = ReadFileIfPresent(sources.overlayPath).value();
      const bool present = now.has_value();
      const std::string overlay = now.value_or("");
      // The one file a failure can leave: the staged candidate whose own removal failed.
      const bool stagedKept =
          !result.errors.empty() && result.errors[0].starts_with(L"Could not remove the staged");
      EXPECT_EQ(LeftoverIn(folder) || LeftoverIn(PublishedFolder()), stagedKept);
      if (stagedKept) (void)DeleteFileIfPresent(CandidateOverlayPath(sources.overlayPath));
      if (testing::Test::HasFailure()) std::wcout << files.Trace() << L"\n";
      // A failing step may be one the operation survives (an unreadable control record
      // restarts the numbering): then it must have reached the new state whole.
      if (result.published) {
        if (operation.overlayAfter) {
          EXPECT_EQ(now, operation.overlayAfter);
        } else if (operation.overlayBefore == restamp) {
          EXPECT_NE(overlay.find("\"baseline_version\": \"win11-shell-2026.11\""),
                    std::string::npos);
        } else {
          EXPECT_FALSE(present);
        }
        EXPECT_EQ(PublishedNodes(), operation.nodesAfter);
      } else {
        EXPECT_EQ(now, operation.overlayBefore);
        EXPECT_EQ(PublishedNodes(), nodesBefore);
      }
      if (failAt > static_cast<int>(files.steps.size())) break;  // no step failed: success
      if (failAt > 0) ++cases;
    }
    std::printf("%s: %d file steps\n", operation.name, cases - total);
    total = cases;
  }
  std::printf("%d failure cases checked\n", cases);
  EXPECT_GT(cases, 0);
}

}  // namespace
}  // namespace cmr
