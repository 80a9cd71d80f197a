#include "config/config_publisher.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/file_io.h"
#include "config/config_snapshot.h"
#include "tests/support/scripted_files.h"

// Refusals of bad input and the settings file's order are checked end to end in
// config_verbs_e2e_test.cpp; a torn publication, by a reader process in
// publication_race_e2e_test.cpp.

namespace cmr {
namespace {

std::wstring TempFolder(const wchar_t* name) {
  wchar_t temp[MAX_PATH + 1] = {};
  ::GetTempPathW(MAX_PATH, temp);
  const std::wstring folder = JoinPath(JoinPath(temp, L"cmr-publisher"), name);
  for (uint32_t n = 0; n < 6; ++n) {
    (void)DeleteFileIfPresent(JoinPath(folder, fmt::format(L"snapshot-{}.bin", n)));
  }
  (void)DeleteFileIfPresent(JoinPath(folder, L"control.bin"));
  (void)EnsureDirectories(folder);
  return folder;
}

std::string Read(const std::wstring& path) {
  const Result<std::string> bytes = ReadWholeFile(path);
  return bytes ? bytes.value() : "<missing>";
}

PublishResult Publish(const MenuConfiguration& config, const std::wstring& folder,
                      FileOperations& files = SystemFiles(),
                      PublishMode mode = PublishMode::publish,
                      GlobalsPolicy globals = GlobalsPolicy::withDefaultGlobals) {
  PublishResult result;
  ConfigPublisher(folder, files).Publish(config, mode, globals, result);
  return result;
}

TEST(ConfigPublisher, ControlFileCountsOnlyAtItsExactSizeAndMagic) {
  const std::wstring folder = TempFolder(L"control");
  const std::wstring control = JoinPath(folder, L"control.bin");
  const std::string block = EncodeControlBlock(MenuConfiguration{}, 41);
  const struct {
    const char* name;
    std::string bytes;
    uint32_t version, layout;
  } rows[] = {
      {"720 bytes", block, 41, 18},
      {"719 bytes", block.substr(0, 719), 0, 0},
      {"foreign magic", "XXXX" + block.substr(4), 0, 0},
      {"721 bytes", block + '\0', 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(AtomicWriteFile(control, row.bytes).ok());
    ControlReading reading{7, 7};
    EXPECT_EQ(ReadControl(control, reading), row.version != 0);
    EXPECT_EQ(reading.version, row.version);
    EXPECT_EQ(reading.layout, row.layout);
  }
  // Over the 721-byte file the first publication is version 1 and cuts the file back to 720
  // bytes, so the next one is version 2 rather than version 1 again.
  EXPECT_EQ(Publish(MenuConfiguration{}, folder).version, 1u);
  EXPECT_EQ(Read(control).size(), 720u);
  EXPECT_EQ(Publish(MenuConfiguration{}, folder).version, 2u);
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
  // Header, profile and item rows end at 112; the pool holds the title, "x.exe" and two zeros.
  const size_t exact = (1048576 - 112) / 2 - 7;
  const PublishResult fits = Publish(UserCommandConfiguration(exact), folder);
  EXPECT_TRUE(fits.published);
  EXPECT_EQ(fits.snapshotBytes, 1048576u);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-1.bin")).size(), 1048576u);
  const std::string control = Read(JoinPath(folder, L"control.bin"));
  for (const PublishMode mode : {PublishMode::publish, PublishMode::checkOnly}) {
    const PublishResult over =
        Publish(UserCommandConfiguration(exact + 1), folder, SystemFiles(), mode);
    EXPECT_FALSE(over.published);
    EXPECT_EQ(over.snapshotBytes, mode == PublishMode::checkOnly ? 1048584u : 0u);
    EXPECT_EQ(over.errors, MessageList{L"The configuration flattens to 1048584 bytes, over the "
                                       L"1048576 byte limit."});
  }
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), control);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-2.bin")), "<missing>");
}

// The snapshot is on disk before control.bin is touched at all, so a failure at any step leaves
// control.bin byte for byte as it was; only the last step moves the version. A check writes
// nothing.
TEST(ConfigPublisher, EachFailedStepLeavesControlAsItWas) {
  const wchar_t* both = L"write snapshot-2.bin, map control.bin";
  const struct {
    PublishMode mode;
    GlobalsPolicy globals;
    int failAt;
    const wchar_t* trace;
  } rows[] = {
      {PublishMode::publish, GlobalsPolicy::withDefaultGlobals, 0, both},
      {PublishMode::publish, GlobalsPolicy::withDefaultGlobals, 1, L"write snapshot-2.bin"},
      {PublishMode::publish, GlobalsPolicy::withDefaultGlobals, 2, both},
      {PublishMode::publish, GlobalsPolicy::keepPublishedGlobals, 0, both},
      {PublishMode::publish, GlobalsPolicy::keepPublishedGlobals, 2, both},
      {PublishMode::checkOnly, GlobalsPolicy::withDefaultGlobals, 0, L""},
  };
  MenuConfiguration changed;
  changed.opacityPercent = 40;
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "fail at " << row.failAt << ", trace " << row.trace);
    const std::wstring folder = TempFolder(L"steps");
    ASSERT_TRUE(Publish(MenuConfiguration{}, folder).published);
    const std::string before = Read(JoinPath(folder, L"control.bin"));
    ScriptedFiles files;
    files.failAt = row.failAt;
    const PublishResult result = Publish(changed, folder, files, row.mode, row.globals);
    const bool published = row.failAt == 0 && row.mode == PublishMode::publish;
    EXPECT_EQ(files.Trace(), row.trace);
    EXPECT_EQ(result.published, published);
    EXPECT_EQ(result.version, published ? 2u : 0u);
    EXPECT_EQ(Read(JoinPath(folder, L"control.bin")) == before, !published);
    if (row.failAt != 0) {
      EXPECT_EQ(result.errors,
                MessageList{fmt::format(L"injected failure at step {}", row.failAt)});
    }
  }
}

// A control file that cannot be opened for a moment (the renaming process or a scanner still
// holds it) is waited for; one that stays unreadable fails the publication instead of
// restarting the numbering at 1.
TEST(ConfigPublisher, UnreadableControlIsRetriedThenRefused) {
  const std::wstring folder = TempFolder(L"retry");
  ASSERT_TRUE(Publish(MenuConfiguration{}, folder).published);
  ScriptedFiles briefly, held;
  briefly.unreadableReads = 3;
  held.unreadableReads = 1000;
  EXPECT_EQ(Publish(MenuConfiguration{}, folder, briefly).version, 2u);
  const PublishResult refused = Publish(MenuConfiguration{}, folder, held);
  EXPECT_FALSE(refused.published);
  EXPECT_EQ(held.Trace(), L"");
  ASSERT_EQ(refused.errors.size(), 1u);
  EXPECT_TRUE(refused.errors[0].starts_with(
      L"The published version could not be read, so nothing was published: "));
  ControlReading reading;
  ASSERT_TRUE(ReadControl(JoinPath(folder, L"control.bin"), reading));
  EXPECT_EQ(reading.version, 2u);
}

}  // namespace
}  // namespace cmr
