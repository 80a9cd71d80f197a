#include "config/config_publisher.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/file_io.h"
#include "config/config_snapshot.h"
#include "tests/support/scripted_files.h"

// The settings file's order (globals, then trust, then menu) and the refusals of bad input are
// checked end to end in config_verbs_e2e_test.cpp; a reader process in
// publication_race_e2e_test.cpp would see a torn publication.

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

void Write(const std::wstring& path, const std::string& bytes) {
  ASSERT_TRUE(AtomicWriteFile(path, bytes).ok());
}

PublishResult Publish(const MenuConfiguration& config, const std::wstring& folder,
                      FileOperations& files = SystemFiles(),
                      PublishMode mode = PublishMode::publish,
                      GlobalsPolicy globals = GlobalsPolicy::withDefaultGlobals) {
  PublishResult result;
  ConfigPublisher(folder, files).Publish(config, mode, globals, result);
  return result;
}

TEST(ConfigPublisher, MalformedControlFilesReadAsVersionZero) {
  const std::wstring folder = TempFolder(L"control");
  const std::wstring control = JoinPath(folder, L"control.bin");
  std::string block = EncodeControlBlock(MenuConfiguration{}, 41);
  const std::string cases[] = {block.substr(0, 719), block + '\0', "XXXX" + block.substr(4)};
  for (const std::string& bytes : cases) {
    Write(control, bytes);
    ControlReading reading{7, 7};
    EXPECT_FALSE(ReadControl(control, reading)) << bytes.size();
    EXPECT_EQ(reading.version, 0u);
    EXPECT_EQ(reading.layout, 0u);
  }
  ControlReading reading;
  Write(control, block);
  ASSERT_TRUE(ReadControl(control, reading));
  EXPECT_EQ(reading.version, 41u);
  EXPECT_EQ(reading.layout, 18u);

  // After a 721-byte control file the first publication is version 1, and the file is cut back
  // to 720 bytes so that the next one is version 2 rather than version 1 again.
  Write(control, block + '\0');
  const PublishResult first = Publish(MenuConfiguration{}, folder);
  EXPECT_TRUE(first.published);
  EXPECT_EQ(first.version, 1u);
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

  const std::string controlBefore = Read(JoinPath(folder, L"control.bin"));
  const PublishResult over = Publish(UserCommandConfiguration(exact + 1), folder);
  EXPECT_FALSE(over.published);
  EXPECT_EQ(
      over.errors,
      MessageList{L"The configuration flattens to 1048584 bytes, over the 1048576 byte limit."});
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), controlBefore);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-2.bin")), "<missing>");

  const PublishResult check = Publish(UserCommandConfiguration(exact + 1), folder, SystemFiles(),
                                      PublishMode::checkOnly);
  EXPECT_EQ(check.snapshotBytes, 1048584u);
  EXPECT_EQ(check.errors.size(), 1u);
}

// The snapshot is on disk before control.bin is touched at all, so a failure at any step leaves
// control.bin byte for byte as it was; only the last step moves the version.
TEST(ConfigPublisher, EachFailedStepLeavesControlAsItWas) {
  const struct {
    GlobalsPolicy globals;
    int failAt;
    const wchar_t* trace;
  } cases[] = {
      {GlobalsPolicy::withDefaultGlobals, 0, L"write snapshot-2.bin, map control.bin"},
      {GlobalsPolicy::withDefaultGlobals, 1, L"write snapshot-2.bin"},
      {GlobalsPolicy::withDefaultGlobals, 2, L"write snapshot-2.bin, map control.bin"},
      {GlobalsPolicy::keepPublishedGlobals, 0, L"write snapshot-2.bin, map control.bin"},
      {GlobalsPolicy::keepPublishedGlobals, 2, L"write snapshot-2.bin, map control.bin"},
  };
  MenuConfiguration changed;
  changed.opacityPercent = 40;
  for (const auto& c : cases) {
    const std::wstring folder = TempFolder(L"steps");
    ASSERT_TRUE(Publish(MenuConfiguration{}, folder).published);
    const std::string before = Read(JoinPath(folder, L"control.bin"));
    ScriptedFiles files;
    files.failAt = c.failAt;
    const PublishResult result =
        Publish(changed, folder, files, PublishMode::publish, c.globals);
    EXPECT_EQ(files.Trace(), c.trace) << c.failAt;
    EXPECT_EQ(result.published, c.failAt == 0) << c.failAt;
    EXPECT_EQ(result.version, c.failAt == 0 ? 2u : 0u);
    if (c.failAt != 0) {
      EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), before) << c.failAt;
      EXPECT_EQ(result.errors, MessageList{fmt::format(L"injected failure at step {}", c.failAt)});
    } else {
      EXPECT_NE(Read(JoinPath(folder, L"control.bin")), before);
    }
  }
  ScriptedFiles check;
  (void)Publish(MenuConfiguration{}, TempFolder(L"steps"), check, PublishMode::checkOnly);
  EXPECT_EQ(check.Trace(), L"");
}

// A control file that cannot be opened for a moment (the renaming process or a scanner still
// holds it) is waited for; one that stays unreadable fails the publication instead of
// restarting the numbering at 1.
TEST(ConfigPublisher, UnreadableControlIsRetriedThenRefused) {
  const std::wstring folder = TempFolder(L"retry");
  ASSERT_TRUE(Publish(MenuConfiguration{}, folder).published);
  ScriptedFiles briefly;
  briefly.unreadableReads = 3;
  EXPECT_EQ(Publish(MenuConfiguration{}, folder, briefly).version, 2u);

  ScriptedFiles held;
  held.unreadableReads = 1000;
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
