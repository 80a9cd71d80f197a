#include "config/config_publisher.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/file_io.h"
#include "config/config_snapshot.h"

// The settings file's order (globals, then trust, then menu) and the refusals of bad input are
// checked end to end in config_verbs_e2e_test.cpp; a reader process in
// config_concurrency_e2e_test.cpp would see any globals write that moved the version.

namespace cmr {
namespace {

std::wstring TempFolder(const wchar_t* name) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring folder = JoinPath(JoinPath(temp, L"cmr-publisher"), name);
  for (uint32_t n = 0; n < 4; ++n) {
    (void)DeleteFileIfPresent(JoinPath(folder, fmt::format(L"snapshot-{}.bin", n)));
  }
  (void)DeleteFileIfPresent(JoinPath(folder, L"control.bin"));
  (void)EnsureDirectories(folder);
  return folder;
}

std::string Read(const std::wstring& path) {
  std::string bytes;
  return ReadWholeFile(path, bytes) == ReadStatus::ok ? bytes : "<missing>";
}

PublishResult Publish(const MenuConfiguration& config, PublicationTarget& target,
                      PublishMode mode = PublishMode::publish,
                      GlobalsPolicy globals = GlobalsPolicy::withDefaultGlobals) {
  PublishResult result;
  PublishConfiguration(config, mode, globals, target, result);
  return result;
}

TEST(ConfigPublisher, MalformedControlFilesReadAsVersionZero) {
  const std::wstring folder = TempFolder(L"control");
  const std::wstring control = JoinPath(folder, L"control.bin");
  MessageList errors;
  std::string block = EncodeControlBlock(MenuConfiguration{}, 41);
  const std::string cases[] = {block.substr(0, 719), block + '\0', "XXXX" + block.substr(4)};
  for (const std::string& bytes : cases) {
    ASSERT_TRUE(WriteWholeFile(control, bytes, errors));
    ControlReading reading{7, 7};
    EXPECT_FALSE(ReadControl(control, reading)) << bytes.size();
    EXPECT_EQ(reading.version, 0u);
    EXPECT_EQ(reading.layout, 0u);
  }
  ControlReading reading;
  ASSERT_TRUE(WriteWholeFile(control, block, errors));
  ASSERT_TRUE(ReadControl(control, reading));
  EXPECT_EQ(reading.version, 41u);
  EXPECT_EQ(reading.layout, 18u);

  // After a 721-byte control file the first publication is version 1, and the file is cut back
  // to 720 bytes so that the next one is version 2 rather than version 1 again.
  ASSERT_TRUE(WriteWholeFile(control, block + '\0', errors));
  PublishedFolderTarget target(folder);
  const PublishResult first = Publish(MenuConfiguration{}, target);
  EXPECT_TRUE(first.published);
  EXPECT_EQ(first.version, 1u);
  EXPECT_EQ(Read(control).size(), 720u);
  EXPECT_EQ(Publish(MenuConfiguration{}, target).version, 2u);
}

// One profile with one user item whose title has `titleUnits` units.
MenuConfiguration UserCommandConfiguration(size_t titleUnits) {
  MenuConfiguration config;
  config.profiles.push_back({kContextFolderItem, 0, 1});
  ItemRecord item;
  item.source = ItemSource::user;
  item.title = config.pool.Intern(std::wstring(titleUnits, L't'));
  item.executable = config.pool.Intern(L"x.exe");
  config.items.push_back(item);
  config.userCommandCount = 1;
  return config;
}

TEST(ConfigPublisher, SizeLimitIsInclusive) {
  const std::wstring folder = TempFolder(L"limit");
  PublishedFolderTarget target(folder);
  // Header, profile and item rows end at 112; the pool holds the title, "x.exe" and two zeros.
  const size_t exact = (1048576 - 112) / 2 - 7;
  const PublishResult fits = Publish(UserCommandConfiguration(exact), target);
  EXPECT_TRUE(fits.published);
  EXPECT_EQ(fits.snapshotBytes, 1048576u);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-1.bin")).size(), 1048576u);

  const std::string controlBefore = Read(JoinPath(folder, L"control.bin"));
  const PublishResult over = Publish(UserCommandConfiguration(exact + 1), target);
  EXPECT_FALSE(over.published);
  EXPECT_EQ(
      over.errors,
      MessageList{L"The configuration flattens to 1048584 bytes, over the 1048576 byte limit."});
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), controlBefore);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-2.bin")), "<missing>");

  const PublishResult check =
      Publish(UserCommandConfiguration(exact + 1), target, PublishMode::checkOnly);
  EXPECT_EQ(check.snapshotBytes, 1048584u);
  EXPECT_EQ(check.errors.size(), 1u);
}

// Records the publication steps in order and fails the one it is told to.
class RecordingTarget : public PublicationTarget {
 public:
  explicit RecordingTarget(std::string failAt = "") : failAt_(std::move(failAt)) {}
  uint32_t CurrentVersion() override { return 4; }
  bool PublishGlobals(const MenuConfiguration&, MessageList& errors) override {
    return Step("globals", errors);
  }
  bool WriteSnapshot(uint32_t version, std::string_view, MessageList& errors) override {
    return Step("snapshot-" + std::to_string(version), errors);
  }
  bool PublishVersion(uint32_t version, MessageList& errors) override {
    return Step("version-" + std::to_string(version), errors);
  }
  std::string steps;

 private:
  bool Step(const std::string& name, MessageList& errors) {
    steps += name + " ";
    if (name != failAt_) return true;
    errors.push_back(L"injected");
    return false;
  }
  std::string failAt_;
};

TEST(ConfigPublisher, EachFailedStepStopsBeforeTheVersionMoves) {
  const struct {
    std::string failAt;
    std::string steps;
  } cases[] = {{"", "globals snapshot-5 version-5 "},
               {"globals", "globals "},
               {"snapshot-5", "globals snapshot-5 "},
               {"version-5", "globals snapshot-5 version-5 "}};
  for (const auto& c : cases) {
    RecordingTarget target(c.failAt);
    const PublishResult result = Publish(MenuConfiguration{}, target);
    EXPECT_EQ(target.steps, c.steps);
    EXPECT_EQ(result.published, c.failAt.empty());
    EXPECT_EQ(result.version, c.failAt.empty() ? 5u : 0u);
    EXPECT_EQ(result.errors.size(), c.failAt.empty() ? 0u : 1u);
  }
  RecordingTarget keep, check;
  (void)Publish(MenuConfiguration{}, keep, PublishMode::publish,
                GlobalsPolicy::keepPublishedGlobals);
  EXPECT_EQ(keep.steps, "snapshot-5 version-5 ");
  (void)Publish(MenuConfiguration{}, check, PublishMode::checkOnly);
  EXPECT_EQ(check.steps, "");
}

}  // namespace
}  // namespace cmr
