#include "config/config_publisher.h"

#include <fmt/xchar.h>
#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "config/config_snapshot.h"
#include "tests/support/scripted_files.h"

// Refusals of bad input and the settings file's order are checked end to end in
// config_verbs_e2e_test.cpp; a torn publication, by a reader process in
// publication_race_e2e_test.cpp.

namespace cmr {
namespace {

std::wstring TempFolder(const wchar_t* name) {
  const std::wstring folder = JoinPath(JoinPath(ProductFolder(), L"publisher-test"), name);
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
                      PublishMode mode = PublishMode::publish) {
  PublishResult result;
  ConfigPublisher(folder, files).Publish(config, mode, GlobalsPolicy::withDefaultGlobals, result);
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
  EXPECT_EQ(Publish(MenuConfiguration{}, folder).version, 2u);

  // A control file that cannot be opened for a moment (the renaming process or a scanner still
  // holds it) is waited for; one that stays unreadable fails the publication instead of
  // restarting the numbering at 1.
  ScriptedFiles briefly, held;
  briefly.unreadableReads = 3;
  held.unreadableReads = 1000;
  EXPECT_EQ(Publish(MenuConfiguration{}, folder, briefly).version, 3u);
  const PublishResult refused = Publish(MenuConfiguration{}, folder, held);
  EXPECT_EQ(held.Trace(), L"");
  ASSERT_EQ(refused.errors.size(), 1u);
  EXPECT_TRUE(refused.errors[0].starts_with(
      L"The published version could not be read, so nothing was published: "));
  EXPECT_EQ(Publish(MenuConfiguration{}, folder).version, 4u);
}

// A snapshot of the header and a pool holding one text of `units` units and its terminator.
MenuConfiguration WithText(size_t units) {
  MenuConfiguration config;
  (void)config.pool.Intern(std::wstring(units, L't'));
  return config;
}

TEST(ConfigPublisher, SizeLimitIsInclusive) {
  const std::wstring folder = TempFolder(L"limit");
  const size_t exact = (1048576 - 48) / 2 - 1;
  const PublishResult fits = Publish(WithText(exact), folder);
  EXPECT_TRUE(fits.published);
  EXPECT_EQ(fits.snapshotBytes, 1048576u);
  const std::string control = Read(JoinPath(folder, L"control.bin"));
  for (const PublishMode mode : {PublishMode::publish, PublishMode::checkOnly}) {
    const PublishResult over = Publish(WithText(exact + 1), folder, SystemFiles(), mode);
    EXPECT_FALSE(over.published);
    EXPECT_EQ(over.snapshotBytes, mode == PublishMode::checkOnly ? 1048584u : 0u);
    EXPECT_EQ(over.errors, MessageList{L"The configuration flattens to 1048584 bytes, over the "
                                       L"1048576 byte limit."});
  }
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), control);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-2.bin")), "<missing>");
}

// Globals and version go out through one mapping after the snapshot is on disk (the order of
// the steps is the shared publication's, held by the overlay pipeline's test), so a failure to
// map control.bin leaves it byte for byte as it was. A check writes nothing.
TEST(ConfigPublisher, AFailedCommitLeavesControlAsItWasAndACheckWritesNothing) {
  const std::wstring folder = TempFolder(L"steps");
  ASSERT_TRUE(Publish(MenuConfiguration{}, folder).published);
  const std::string before = Read(JoinPath(folder, L"control.bin"));
  MenuConfiguration changed;
  changed.opacityPercent = 40;
  ScriptedFiles failing, checking;
  failing.failAt = 2;
  const PublishResult failed = Publish(changed, folder, failing);
  EXPECT_EQ(failing.Trace(), L"write snapshot-2.bin, map control.bin");
  EXPECT_EQ(std::make_pair(failed.published, failed.version), std::make_pair(false, 0u));
  EXPECT_EQ(failed.errors, MessageList{L"injected failure at step 2"});
  EXPECT_FALSE(Publish(changed, folder, checking, PublishMode::checkOnly).published);
  EXPECT_EQ(checking.Trace(), L"");
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), before);
}

}  // namespace
}  // namespace cmr
