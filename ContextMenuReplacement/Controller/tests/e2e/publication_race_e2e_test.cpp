// Two controllers publishing at once (the tray's reconcile, the Settings application and a
// `config watch` easily overlap) while a reader keeps reading what is announced: every
// publication gets its own version, and every announced version names a complete snapshot.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <cstdio>
#include <regex>
#include <set>
#include <thread>
#include <vector>

#include "common/byte_image.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "config/config_publisher.h"
#include "config/config_snapshot.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/custom_model_snapshot.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

constexpr int kRunsPerPublisher = 30;

struct RaceCounts {
  std::vector<uint32_t> versions;  // as reported by the publishers
  int failedRuns = 0;
  uint64_t reads = 0;
  uint64_t badReads = 0;
};

// Runs `args` kRunsPerPublisher times in each of two threads and reads with `readOnce` meanwhile.
// `readOnce` returns 0 for nothing announced yet, 1 for a good read, 2 for a bad one.
RaceCounts Race(const std::vector<std::wstring>& args, const std::regex& published,
                int (*readOnce)()) {
  RaceCounts counts;
  std::mutex lock;
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done.load()) {
      const int outcome = readOnce();
      if (outcome == 0) continue;
      ++counts.reads;
      if (outcome == 2) ++counts.badReads;
    }
  });
  const auto publisher = [&] {
    for (int i = 0; i < kRunsPerPublisher; ++i) {
      const RunResult run = RunController(args);
      std::smatch match;
      std::lock_guard<std::mutex> guard(lock);
      if (run.exitCode == 0 && std::regex_search(run.output, match, published)) {
        counts.versions.push_back(static_cast<uint32_t>(std::stoul(match[1].str())));
      } else {
        ++counts.failedRuns;
        ADD_FAILURE() << run.output;
      }
    }
  };
  std::thread first(publisher), second(publisher);
  first.join();
  second.join();
  done = true;
  reader.join();
  return counts;
}

void Report(const char* kind, const RaceCounts& counts) {
  std::vector<uint32_t> sorted = counts.versions;
  std::sort(sorted.begin(), sorted.end());
  const size_t duplicates =
      sorted.size() - std::set<uint32_t>(sorted.begin(), sorted.end()).size();
  std::printf("%s: %zu publications, %zu duplicate versions, %llu reads, %llu bad reads\n", kind,
              counts.versions.size(), duplicates, static_cast<unsigned long long>(counts.reads),
              static_cast<unsigned long long>(counts.badReads));
  EXPECT_EQ(counts.failedRuns, 0);
  EXPECT_EQ(duplicates, 0u);
  EXPECT_EQ(counts.badReads, 0u);
  // No publication was lost: the versions are exactly 1..n.
  ASSERT_EQ(sorted.size(), size_t{2 * kRunsPerPublisher});
  EXPECT_EQ(sorted.front(), 1u);
  EXPECT_EQ(sorted.back(), static_cast<uint32_t>(sorted.size()));
}

int ReadConfiguration() {
  ControlReading control;
  if (!ReadControl(ControlFilePath(), control) || control.version == 0) return 0;
  const Result<std::string> image = ReadWholeFile(SnapshotFilePath(control.version));
  return image && CheckSnapshotImage(image.value(), control.version).empty() ? 1 : 2;
}

int ReadCustomModel() {
  const Result<std::optional<std::string>> record = ReadFileIfPresent(CustomModelControlPath());
  uint32_t version = 0;
  if (!record || !record.value() || !ReadCustomModelControl(*record.value(), version)) return 0;
  const Result<std::string> image = ReadWholeFile(CustomModelSnapshotPath(version));
  CustomModelView view;
  if (image && AttachCustomModel(image->data(), image->size(), view)) return 1;
  // Clean-up keeps the current and the previous snapshot; one the control file no longer names
  // may be gone by the time it is opened, as a reader of the Hook would also find.
  uint32_t now = 0;
  const Result<std::optional<std::string>> again = ReadFileIfPresent(CustomModelControlPath());
  const bool movedOn = again && again.value() && ReadCustomModelControl(*again.value(), now) &&
                       now > version + 1;
  return movedOn ? 0 : 2;
}

TEST(PublicationRaceE2e, TwoConfigurationPublishersNeverShareAVersion) {
  ResetUserData();
  const std::wstring menu = JoinPath(ScratchFolder(L"publication-race"), L"menu.json");
  ASSERT_EQ(RunController({L"config", L"init", menu}).exitCode, 0u);
  const RaceCounts counts = Race({L"config", L"publish", menu},
                                 std::regex("Published version ([0-9]+) "), ReadConfiguration);
  Report("config", counts);
}

TEST(PublicationRaceE2e, TwoCustomModelPublishersNeverShareAVersion) {
  ResetUserData();
  const RaceCounts counts =
      Race({L"custom-model", L"publish", InstallFolder() + L"\\Schema\\custom-menu.schema.json",
            InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json"},
           std::regex("Published custom model version ([0-9]+):"), ReadCustomModel);
  Report("custom model", counts);
}

}  // namespace
}  // namespace cmr::e2e
