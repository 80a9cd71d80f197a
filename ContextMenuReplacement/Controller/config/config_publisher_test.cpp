#include "config/config_publisher.h"

#include <aclapi.h>
#include <fmt/xchar.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "common/byte_image.h"
#include "common/file_io.h"
#include "common/unique_handle.h"
#include "config/config_loader.h"
#include "config/config_snapshot.h"

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
  PublishResult first;
  PublishConfiguration(MenuConfiguration{}, PublishMode::publish, GlobalsPolicy::withDefaultGlobals,
                       target, first);
  EXPECT_TRUE(first.published);
  EXPECT_EQ(first.version, 1u);
  EXPECT_EQ(Read(control).size(), 720u);
  PublishResult second;
  PublishConfiguration(MenuConfiguration{}, PublishMode::publish, GlobalsPolicy::withDefaultGlobals,
                       target, second);
  EXPECT_EQ(second.version, 2u);
}

TEST(ConfigPublisher, GlobalsNeverMoveTheVersion) {
  const std::wstring folder = TempFolder(L"globals");
  const std::wstring control = JoinPath(folder, L"control.bin");
  MessageList errors;
  ASSERT_TRUE(PublishGlobals(control, MenuConfiguration{}, errors));
  // A new control file carries globals but announces nothing.
  EXPECT_EQ(Read(control), EncodeControlBlock(MenuConfiguration{}, 0));
  ASSERT_TRUE(PublishVersion(control, 12, errors));
  MenuConfiguration changed;
  changed.bypassMask = 1;
  changed.appearance.fontFamily = L"Segoe UI";
  ASSERT_TRUE(PublishGlobals(control, changed, errors));
  EXPECT_EQ(Read(control), EncodeControlBlock(changed, 12));
  ASSERT_TRUE(PublishVersion(control, 13, errors));
  EXPECT_EQ(Read(control), EncodeControlBlock(changed, 13));
  EXPECT_TRUE(errors.empty());
}

TEST(ConfigPublisher, SizeLimitIsInclusive) {
  const std::wstring folder = TempFolder(L"limit");
  PublishedFolderTarget target(folder);
  // Header, profile and item rows end at 112; the pool holds the title, "x.exe" and two zeros.
  const size_t exact = (1048576 - 112) / 2 - 7;
  PublishResult fits;
  PublishConfiguration(UserCommandConfiguration(exact), PublishMode::publish,
                       GlobalsPolicy::withDefaultGlobals, target, fits);
  EXPECT_TRUE(fits.published);
  EXPECT_EQ(fits.snapshotBytes, 1048576u);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-1.bin")).size(), 1048576u);

  const std::string controlBefore = Read(JoinPath(folder, L"control.bin"));
  PublishResult over;
  PublishConfiguration(UserCommandConfiguration(exact + 1), PublishMode::publish,
                       GlobalsPolicy::withDefaultGlobals, target, over);
  EXPECT_FALSE(over.published);
  EXPECT_EQ(
      over.errors,
      MessageList{L"The configuration flattens to 1048584 bytes, over the 1048576 byte limit."});
  EXPECT_EQ(Read(JoinPath(folder, L"control.bin")), controlBefore);
  EXPECT_EQ(Read(JoinPath(folder, L"snapshot-2.bin")), "<missing>");

  PublishResult check;
  PublishConfiguration(UserCommandConfiguration(exact + 1), PublishMode::checkOnly,
                       GlobalsPolicy::withDefaultGlobals, target, check);
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
    PublishResult result;
    PublishConfiguration(MenuConfiguration{}, PublishMode::publish,
                         GlobalsPolicy::withDefaultGlobals, target, result);
    EXPECT_EQ(target.steps, c.steps);
    EXPECT_EQ(result.published, c.failAt.empty());
    EXPECT_EQ(result.version, c.failAt.empty() ? 5u : 0u);
    EXPECT_EQ(result.errors.size(), c.failAt.empty() ? 0u : 1u);
  }
  RecordingTarget keep;
  PublishResult result;
  PublishConfiguration(MenuConfiguration{}, PublishMode::publish,
                       GlobalsPolicy::keepPublishedGlobals, keep, result);
  EXPECT_EQ(keep.steps, "snapshot-5 version-5 ");
  RecordingTarget check;
  PublishConfiguration(MenuConfiguration{}, PublishMode::checkOnly,
                       GlobalsPolicy::withDefaultGlobals, check, result);
  EXPECT_EQ(check.steps, "");
}

void AllowEveryoneToWrite(const std::wstring& path) {
  PSECURITY_DESCRIPTOR raw = nullptr;
  ASSERT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(
      L"D:(A;;FA;;;OW)(A;;FA;;;WD)", SDDL_REVISION_1, &raw, nullptr));
  UniqueLocalMemory descriptor(raw);
  BOOL present = FALSE, defaulted = FALSE;
  PACL dacl = nullptr;
  ASSERT_TRUE(::GetSecurityDescriptorDacl(raw, &present, &dacl, &defaulted));
  ASSERT_EQ(::SetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION, nullptr, nullptr, dacl, nullptr),
            static_cast<DWORD>(ERROR_SUCCESS));
}

TEST(ConfigPublisher, SettingsFileOrderIsGlobalsTrustMenu) {
  const std::wstring folder = TempFolder(L"settings");
  const std::wstring path = JoinPath(folder, L"High Level Settings.json");
  (void)DeleteFileIfPresent(path);
  MessageList errors;
  const std::string good =
      R"({"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{)"
      R"("menu.profiles":[{"match":{"context":["folder-item"]},"items":[{"type":"separator"}]}]}}]})";
  ASSERT_TRUE(WriteWholeFile(path, good, errors));
  RecordingTarget trusted;
  const PublishResult ok = LoadSettingsFile(path, PublishMode::publish, trusted);
  EXPECT_EQ(trusted.steps, "globals snapshot-5 version-5 ");
  EXPECT_TRUE(ok.published && ok.aclAccepted && ok.valid);

  RecordingTarget checking;
  EXPECT_TRUE(LoadSettingsFile(path, PublishMode::checkOnly, checking).valid);
  EXPECT_EQ(checking.steps, "");

  // A menu error publishes nothing at all, not even the globals.
  ASSERT_TRUE(WriteWholeFile(path, good.substr(0, good.find("{\"type\"")) + "7]}]}}]}", errors));
  RecordingTarget invalid;
  EXPECT_FALSE(LoadSettingsFile(path, PublishMode::publish, invalid).published);
  EXPECT_EQ(invalid.steps, "");

  // A file others may write still gets its globals applied; its menu model is refused.
  ASSERT_TRUE(WriteWholeFile(path, good, errors));
  AllowEveryoneToWrite(path);
  RecordingTarget untrusted;
  const PublishResult refused = LoadSettingsFile(path, PublishMode::publish, untrusted);
  EXPECT_EQ(untrusted.steps, "globals ");
  EXPECT_FALSE(refused.published);
  EXPECT_FALSE(refused.aclAccepted);
  ASSERT_EQ(refused.errors.size(), 1u);
  EXPECT_EQ(refused.errors[0].rfind(L"\\Everyone (S-1-1-0) can modify this file.", 0), 0u);
  (void)DeleteFileIfPresent(path);
}

}  // namespace
}  // namespace cmr
