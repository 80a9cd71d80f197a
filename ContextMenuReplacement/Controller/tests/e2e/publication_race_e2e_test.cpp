// Two controllers publishing at once (the tray's reconcile, the Settings application and a
// `config watch` easily overlap) while a reader keeps reading what is announced: every
// publication gets its own version, and every announced version names a complete snapshot.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <numeric>
#include <regex>
#include <thread>
#include <vector>

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

// Returns 0 for nothing announced yet, 1 for a good read, 2 for a bad one.
int ReadConfiguration() {
  ControlReading control;
  if (!ReadControl(ControlFilePath(), control) || control.version == 0) return 0;
  const Result<std::string> image = ReadWholeFile(SnapshotFilePath(control.version));
  return image && CheckSnapshotImage(image.value(), control.version).ok() ? 1 : 2;
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
  const bool movedOn =
      again && again.value() && ReadCustomModelControl(*again.value(), now) && now > version + 1;
  return movedOn ? 0 : 2;
}

// Runs `args` kRunsPerPublisher times in each of two threads while `readOnce` reads meanwhile.
void Race(const char* kind, const std::vector<std::wstring>& args, const std::regex& published,
          int (*readOnce)()) {
  std::vector<uint32_t> versions;
  std::mutex lock;
  std::atomic<bool> done{false};
  uint64_t reads = 0, badReads = 0;
  std::thread reader([&] {
    while (!done.load()) {
      const int outcome = readOnce();
      reads += outcome != 0;
      badReads += outcome == 2;
    }
  });
  const auto publisher = [&] {
    for (int i = 0; i < kRunsPerPublisher; ++i) {
      const RunResult run = RunController(args);
      std::smatch match;
      std::lock_guard<std::mutex> guard(lock);
      if (run.exitCode == 0 && std::regex_search(run.output, match, published)) {
        versions.push_back(static_cast<uint32_t>(std::stoul(match[1].str())));
      } else {
        ADD_FAILURE() << run.output;
      }
    }
  };
  std::thread first(publisher), second(publisher);
  first.join();
  second.join();
  done = true;
  reader.join();
  std::sort(versions.begin(), versions.end());
  std::printf("%s: %zu publications, %llu reads, %llu bad reads\n", kind, versions.size(),
              static_cast<unsigned long long>(reads), static_cast<unsigned long long>(badReads));
  EXPECT_EQ(badReads, 0u);
  // Every publication has its own version and none was lost: the versions are exactly 1..n.
  std::vector<uint32_t> expected(2 * kRunsPerPublisher);
  std::iota(expected.begin(), expected.end(), 1u);
  EXPECT_EQ(versions, expected);
}

TEST(PublicationRaceE2e, TwoPublishersOfEachFormatNeverShareAVersion) {
  ResetUserData();
  const std::wstring menu = JoinPath(ScratchFolder(L"publication-race"), L"menu.json");
  ASSERT_EQ(RunController({L"config", L"init", menu}).exitCode, 0u);
  Race("config", {L"config", L"publish", menu}, std::regex("Published version ([0-9]+) "),
       ReadConfiguration);
  Race("custom model",
       {L"custom-model", L"publish", InstallFolder() + L"\\Schema\\custom-menu.schema.json",
        InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json"},
       std::regex("Published custom model version ([0-9]+):"), ReadCustomModel);
}

}  // namespace
}  // namespace cmr::e2e
