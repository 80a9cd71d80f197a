// The config verbs as a user and the Settings application see them: console bytes, exit codes
// and the bytes of the published files.

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_writer.h"
#include "common/system_error.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/menu_document.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

using namespace std::string_literals;

const std::string kNothingPublished =
    "Nothing was published. The previously published configuration is still in effect,\n"
    "so the context menu keeps working while this is fixed.\n";
const std::string kEveryone =
    "\\Everyone (S-1-1-0) can modify this file. Because it names executables that run on every "
    "right-click, only you, SYSTEM and Administrators may have write access.";
constexpr wchar_t kEveryoneWrites[] = L"D:(A;;FA;;;OW)(A;;FA;;;WD)";

// Replaces the file's DACL. Wine keeps a file's DACL in its Unix mode bits, so what the
// controller reads back is what the file system really allows.
void SetDacl(const std::wstring& path, const wchar_t* sddl) {
  PSECURITY_DESCRIPTOR raw = nullptr;
  ASSERT_TRUE(
      ::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, &raw, nullptr));
  UniqueLocalMemory descriptor(raw);
  ASSERT_TRUE(::SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, raw));
}

std::string PublishedText(const std::string& counts) {
  return "Published " + counts + ".\nThe next menu uses it. Explorer does not need to restart.\n";
}

TEST(ConfigVerbsE2e, InitPublishStatusAndRefusalsThatChangeNothing) {
  ResetUserData();
  const std::wstring folder = ScratchFolder(L"config-init");
  const auto file = [&](const wchar_t* name) { return JoinPath(folder, name); };
  const std::wstring menu = file(L"menu.json");
  const std::string path = ToUtf8(menu);
  const std::string starterCounts = " (656 bytes): 2 profile(s), 8 item(s), 1 user command(s)";
  RunRows({
      {{L"config", L"status", menu},
       "No configuration has been published yet.\nFile: " + path + " (not present)\n",
       0},
      {{L"config", L"init", menu},
       "Wrote a starter configuration to " + path +
           "\nEdit it, then run 'config publish' or leave 'config watch' running.\n",
       0},
      {{L"config", L"init", menu}, "'" + path + "' already exists; refusing to overwrite it.\n", 1},
      {{L"config", L"init", menu + L"\\x.json"},
       "Could not open '" + path + "\\x.json' for writing.\n",
       1},
      {{L"config", L"publish", menu, L"--json"},
       "Publishing " + path + "\n" + PublishedText("version 1" + starterCounts),
       0},
  });
  EXPECT_EQ(ReadBytes(menu), StarterDocumentText());

  // Both files byte for byte. menu.json sets enabled, bypass and opacity; every other global is
  // the fixed default, and the font family and image path are empty.
  const std::string snapshot = ReadBytes(SnapshotFilePath(1));
  EXPECT_EQ(snapshot, Golden(L"starter.snapshot.bin"));
  EXPECT_EQ(ReadBytes(ControlFilePath()), Golden(L"starter.control.bin"));
  EXPECT_PRED2(Has, TodaysLog(), "[config] Published version 1" + starterCounts + "\n");

  RunRows({
      {{L"config", L"status", menu},
       "Published version 1 (layout 18)\nFile:     " + path +
           "\nSnapshot: " + ToUtf8(SnapshotFilePath(1)) + "\n",
       0},
      {{L"config", L"publish", menu},
       "Publishing " + path + "\n" + PublishedText("version 2" + starterCounts),
       0},
      {{L"config", L"path", menu}, path + "\n", 0},
      {{L"config", L"path"}, ToUtf8(SettingsFilePath()) + "\n", 0},
      {{L"config", L"Publish"},
       "Unknown config action 'Publish'. Use init, path, check, publish, watch, or status.\n",
       1},
  });
  std::string second = snapshot;
  second[8] = 2;
  EXPECT_EQ(ReadBytes(SnapshotFilePath(2)), second);
  EXPECT_EQ(ReadBytes(SnapshotFilePath(1)), snapshot);

  // Bad input never changes what is published.
  const std::string announced = ReadBytes(ControlFilePath());
  // Its opacity differs from the published one, so globals written early would show.
  WriteBytes(file(L"huge.json"),
             R"({"backgroundOpacityPercent":50,"profiles":[{"match":{"context":["folder-item"]},)"
             R"("items":[{"source":"user","executable":"x.exe","title":")" +
                 std::string(600000, 't') + "\"}]}]}");
  // The whole file is read, not the text up to its first NUL.
  WriteBytes(file(L"trailing.json"), std::string("{\"profiles\":[]}\0GARBAGE", 22));
  const std::wstring untrusted = file(L"untrusted.json");
  WriteBytes(untrusted, std::string(StarterDocumentText()));
  SetDacl(untrusted, kEveryoneWrites);
  const struct {
    std::wstring file;
    std::string messages;
  } rows[] = {
      {file(L"missing.json"), "  error:   '" + ToUtf8(file(L"missing.json")) +
                                  "' does not exist. Run 'config init' to create one.\n"},
      // Unlike the settings file's, menu.json's globals go out only with its snapshot.
      {file(L"huge.json"),
       "  error:   The configuration flattens to 1200128 bytes, over the 1048576 byte limit.\n"},
      {untrusted, "  error:   " + kEveryone + "\n"},
      {file(L"trailing.json"),
       "  error:   JSON parse error at offset 15: The document contains a NUL byte.\n"},
      {folder, "  error:   '" + ToUtf8(folder) + "' is a folder, not a menu file.\n"},
      // Never the temporary file the snapshot is written through.
      {menu, "  error:   Could not open '" + ToUtf8(SnapshotFilePath(3)) + "' for writing.\n"},
  };
  ASSERT_TRUE(::CreateDirectoryW(SnapshotFilePath(3).c_str(), nullptr));
  for (const auto& row : rows) {
    SCOPED_TRACE(ToUtf8(row.file));
    const RunResult run = RunController({L"config", L"publish", row.file});
    EXPECT_EQ(run.output,
              "Publishing " + ToUtf8(row.file) + "\n" + row.messages + kNothingPublished);
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(ReadBytes(ControlFilePath()), announced);
    EXPECT_EQ(ReadBytes(SnapshotFilePath(3)), "<unreadable>");
  }
  // The writer's own reason goes to the log, ending in one full stop however the system's ends.
  EXPECT_TRUE(Has(TodaysLog(), ToUtf8(SnapshotFilePath(3) + L"': " + ErrorText(5)) + "\n"));
  ::RemoveDirectoryW(SnapshotFilePath(3).c_str());

  RunRows({{{L"config", L"check", untrusted},
            "  " + kEveryone +
                "\nACL REJECTED. This file will not be published until its permissions are "
                "fixed.\n",
            1}});
  // Reading and running are not writing: Everyone may keep those.
  SetDacl(untrusted, L"D:(A;;FA;;;OW)(A;;FRFX;;;WD)");
  RunRows({{{L"config", L"check", untrusted},
            "ACL accepted: only you, SYSTEM and Administrators can modify this file.\n",
            0}});

  // Version 0 with its snapshot (a control file that globals alone created) is a publication.
  std::string wrapped = ReadBytes(ControlFilePath());
  wrapped[8] = 0;
  WriteBytes(ControlFilePath(), wrapped);
  WriteBytes(SnapshotFilePath(0), snapshot);
  RunRows({{{L"config", L"status", menu},
            "Published version 0 (layout 18)\nFile:     " + path +
                "\nSnapshot: " + ToUtf8(SnapshotFilePath(0)) + "\n",
            0}});
}

std::string SettingsText(const std::string& settings,
                         const std::string& items = R"({"source":"modern"},{"source":"user",)"
                                                    R"("title":"Notes","executable":"notepad.exe",)"
                                                    R"("arguments":["{targetPath}"]})") {
  return R"({"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{)" +
         settings + R"(,"menu.profiles":[{"match":{"context":["desktop-background"]},"items":[)" +
         items + R"(]}]}},{"app_id":"window-organizer","status":"disabled"}]})";
}

// The settings file's globals carry no executable, so they go out before its trust and size
// are checked; only a menu error stops them too. Validation writes nothing.
TEST(ConfigVerbsE2e, SettingsFileValidatedAndItsGlobalsAppliedEvenWhenItsMenuIsRefused) {
  ResetUserData();
  const std::wstring settings = SettingsFilePath();
  const std::string source = ToUtf8(settings);
  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"Bold")"));
  RunRows({
      {{L"config", L"validate"},
       "Validating " + source +
           "\nValid. 1 profile(s), 2 item(s), 1 user command(s). Nothing was published.\n",
       0},
      // Without a file, init targets the settings file, which exists.
      {{L"config", L"init"}, "'" + source + "' already exists; refusing to overwrite it.\n", 1},
  });
  EXPECT_FALSE(DirectoryExists(PublishedFolder()));
  // Whole files against golden copies. Settings "a" to "d" give every global a value of its own
  // (booleans in a distinct pattern), "a" every kind of menu row; the refused rows show the
  // settings file's own defaults (vertical padding 3, margins 8 and 7) and COLORREF colours.
  const auto settingsFile = [](const wchar_t* name) { return Golden(name + L".json"s); };
  const std::string countsA = " (664 bytes): 3 profile(s), 8 item(s), 4 user command(s)";
  const std::string published =
      "  warning: profiles[2] has no usable items, so its contexts will show an empty menu.\n" +
      PublishedText("version 1" + countsA);
  const std::string small = " (112 bytes): 1 profile(s), 1 item(s), 0 user command(s)";
  const struct {
    const char* name;
    std::string text;
    const wchar_t* dacl;
    std::string output;
    const wchar_t* golden;  // <golden>.control.bin, and <golden>.snapshot.bin when published
  } rows[] = {
      {"others may write it", SettingsText(R"("appearance.customHeaderColor":"#0000ff")"),
       kEveryoneWrites, "  error:   " + kEveryone + "\n" + kNothingPublished, L"settings-defaults"},
      {"values set", settingsFile(L"settings-a"), nullptr, published, L"settings-a"},
      {"a menu error", SettingsText(R"("appearance.customHeaderColor":"#0000ff")", "7"), nullptr,
       "  warning: profiles[0] has no usable items, so its contexts will show an empty menu.\n"
       "  error:   profiles[0].items[0] must be an object.\n" +
           kNothingPublished,
       L"settings-a"},
      {"a menu too large",
       SettingsText(
           R"("appearance.customHeaderColor":"#00ff00")",
           R"({"source":"user","executable":"x.exe","title":")" + std::string(600000, 't') + "\"}"),
       nullptr,
       "  error:   The configuration flattens to 1200128 bytes, over the 1048576 byte limit.\n" +
           kNothingPublished,
       L"settings-too-large"},
      {"bounds", settingsFile(L"settings-b"), nullptr, PublishedText("version 2" + small),
       L"settings-b"},
      {"c", settingsFile(L"settings-c"), nullptr, PublishedText("version 3" + small),
       L"settings-c"},
      {"d", settingsFile(L"settings-d"), nullptr, PublishedText("version 4" + small),
       L"settings-d"},
  };
  uint32_t version = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    (void)DeleteFileIfPresent(settings);
    WriteBytes(settings, row.text);
    if (row.dacl) SetDacl(settings, row.dacl);
    const bool publishes = row.output.ends_with("restart.\n");
    RunRows({{{L"config", L"publish"}, "Publishing " + source + "\n" + row.output, !publishes}});
    EXPECT_EQ(ReadBytes(ControlFilePath()), Golden(row.golden + L".control.bin"s));
    if (publishes) {
      EXPECT_EQ(ReadBytes(SnapshotFilePath(++version)), Golden(row.golden + L".snapshot.bin"s));
    }
    EXPECT_EQ(ReadBytes(SnapshotFilePath(version + 1)), "<unreadable>");
    if (version == 1 && publishes) {
      RunRows({{{L"config", L"validate", L"--json"},
                "{\"source\":" + ToUtf8(JsonQuote(settings)) +
                    ",\"aclAccepted\":true,\"valid\":true,\"profileCount\":3,\"itemCount\":8,"
                    "\"userCommandCount\":4,\"snapshotBytes\":664,\"publishedVersion\":1,"
                    "\"errors\":[],\"warnings\":[\"profiles[2] has no usable items, so its "
                    "contexts will show an empty menu.\"]}\n",
                0}});
    }
  }
  const std::string log = TodaysLog();
  EXPECT_PRED2(Has, log, "] [config] Globals published: enabled=true bypass=0x5 opacity=41%\n");
  EXPECT_PRED2(Has, log, "] [config] Published version 1" + countsA + "\n");
  // One line, with the version in force. A document with errors is not flattened, so it has no
  // counts or size.
  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"bold","x":1)"));
  RunRows({{{L"config", L"validate", L"--json"},
            "{\"source\":" + ToUtf8(JsonQuote(settings)) +
                ",\"aclAccepted\":true,\"valid\":false,\"profileCount\":0,\"itemCount\":0,"
                "\"userCommandCount\":0,\"snapshotBytes\":0,\"publishedVersion\":4,"
                "\"errors\":[\"'appearance.fontWeight' is not a supported weight.\"],"
                "\"warnings\":[]}\n",
            1}});
  // Readers take the version word as signed: past its highest value nothing at all is written.
  std::string control = ReadBytes(ControlFilePath());
  WriteBytes(ControlFilePath(), control.replace(8, 4, "\xFF\xFF\xFF\x7F", 4));
  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"Bold")"));
  RunRows(
      {{{L"config", L"publish"},
        "Publishing " + source + "\n  error:   The control file '" + ToUtf8(ControlFilePath()) +
            "' announces version 2147483647, and no later version can be published because "
            "readers accept none above 2147483647. Delete that file to restart the numbering at "
            "1.\n" +
            kNothingPublished,
        1}});
  EXPECT_EQ(ReadBytes(ControlFilePath()), control);
  EXPECT_EQ(ReadBytes(SnapshotFilePath(0x80000000u)), "<unreadable>");
  (void)DeleteFileIfPresent(settings);
  (void)DeleteFileIfPresent(ControlFilePath());  // later publications start at 1
}

}  // namespace
}  // namespace cmr::e2e
