#include "snapshot/overlay_pipeline.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "common/data_paths.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"

namespace cmr {
namespace {

// The real files, with one step (every call counts as one) made to fail.
class FailingFiles final : public ModelFiles {
 public:
  explicit FailingFiles(int failAt) : failAt_(failAt) {}
  int steps() const { return steps_; }

  ReadStatus Read(const std::wstring& path, std::string& bytes) override {
    return Fails() ? ReadStatus::unreadable : disk_.Read(path, bytes);
  }
  Result<bool> Exists(const std::wstring& path) override {
    if (Fails()) return Status::Failure(L"injected");
    return disk_.Exists(path);
  }
  Status AtomicWrite(const std::wstring& path, std::string_view bytes) override {
    return Fails() ? Status::Failure(L"injected") : disk_.AtomicWrite(path, bytes);
  }
  Status Delete(const std::wstring& path) override {
    return Fails() ? Status::Failure(L"injected") : disk_.Delete(path);
  }
  DWORD CreateFolder(const std::wstring& path) override {
    return Fails() ? ERROR_ACCESS_DENIED : disk_.CreateFolder(path);
  }

 private:
  bool Fails() { return ++steps_ == failAt_; }
  DiskModelFiles disk_;
  int failAt_;
  int steps_ = 0;
};

std::wstring Staged(const wchar_t* relative) {
  return JoinPath(JoinPath(ParentFolder(ExecutableFolder()), L"stage"), relative);
}

// Node count of the published model; 0 when none is readable.
uint32_t PublishedNodes() {
  std::string control, image;
  uint32_t version = 0;
  CustomModelView view;
  if (ReadWholeFile(CustomModelControlPath(), control) != ReadStatus::ok ||
      !ReadCustomModelControl(control, version) ||
      ReadWholeFile(CustomModelSnapshotPath(version), image) != ReadStatus::ok ||
      !AttachCustomModel(image.data(), image.size(), view)) {
    return 0;
  }
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
  std::function<ModelPipelineResult(const ModelSources&, ModelFiles&)> run;
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
  ASSERT_EQ(EnsureDirectories(folder), static_cast<DWORD>(ERROR_SUCCESS));
  const ModelSources sources{Staged(L"Schema\\custom-menu.schema.json"),
                             Staged(L"Content\\Menus\\create-organize.baseline.json"),
                             JoinPath(folder, L"overlay.json")};
  int cases = 0, total = 0;
  for (const Operation& operation : operations) {
    const uint32_t nodesBefore = operation.overlayBefore == kSaved ? kSavedNodes : kBaselineNodes;
    for (int failAt = 1;; ++failAt) {
      SCOPED_TRACE(std::string(operation.name) + ", failing step " + std::to_string(failAt));
      // The state before: the old overlay published (its stamp as it was, so the overlay is
      // written after the publication, which may re-stamp it).
      ASSERT_TRUE(DeleteFileIfPresent(sources.overlayPath));
      ModelSources before = sources;
      if (operation.overlayBefore) {
        ASSERT_EQ(AtomicWriteFile(sources.overlayPath, *operation.overlayBefore), L"");
      } else {
        before.overlayPath.clear();
      }
      DiskModelFiles disk;
      ASSERT_TRUE(PublishWithOverlay(before, true, disk).published);
      if (operation.overlayBefore) {
        ASSERT_EQ(AtomicWriteFile(sources.overlayPath, *operation.overlayBefore), L"");
      }

      FailingFiles files(failAt);
      const ModelPipelineResult result = operation.run(sources, files);
      std::string overlay;
      const bool present = ReadWholeFile(sources.overlayPath, overlay) == ReadStatus::ok;
      const std::optional<std::string> now =
          present ? std::optional<std::string>(overlay) : std::nullopt;
      // The one file a failure can leave: the staged candidate whose own removal failed.
      const bool stagedKept =
          !result.errors.empty() && result.errors[0].starts_with(L"Could not remove the staged");
      EXPECT_EQ(LeftoverIn(folder) || LeftoverIn(PublishedFolder()), stagedKept);
      if (stagedKept) (void)DeleteFileIfPresent(CandidateOverlayPath(sources.overlayPath));
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
      if (files.steps() < failAt) break;  // every step ran: that was the success path
      ++cases;
    }
    std::printf("%s: %d file steps\n", operation.name, cases - total);
    total = cases;
  }
  std::printf("%d failure cases checked\n", cases);
  EXPECT_GT(cases, 0);
}

}  // namespace
}  // namespace cmr
