// The config verbs as a user and the Settings application see them: console bytes, exit codes
// and the bytes of the published files.

#include <aclapi.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "common/byte_image.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "common/system_error.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/menu_document.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"
#include "tests/support/todays_log.h"

namespace cmr::e2e {
namespace {

using Words32 = std::vector<uint32_t>;

const std::string kNothingPublished =
    "Nothing was published. The previously published configuration is still in effect,\n"
    "so the context menu keeps working while this is fixed.\n";
const std::string kEveryone =
    "\\Everyone (S-1-1-0) can modify this file. Because it names executables that run on every "
    "right-click, only you, SYSTEM and Administrators may have write access.";
constexpr wchar_t kEveryoneWrites[] = L"D:(A;;FA;;;OW)(A;;FA;;;WD)";

Words32 Words(const std::string& image, size_t from, size_t count) {
  ByteImageReader in(image);
  Words32 words;
  for (size_t i = 0; i < count; ++i) words.push_back(in.U32(from + 4 * i));
  return words;
}

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

  // The snapshot field by field: 2 profiles (24 bytes) put the items at 72, 8 items (352) the
  // arguments at 424, 4 arguments the pool at 456.
  const std::string snapshot = ReadBytes(SnapshotFilePath(1));
  ASSERT_EQ(snapshot.size(), 656u);
  EXPECT_EQ(Words(snapshot, 0, 12),
            (Words32{0x424E43D5, 18, 1, 656, 2, 48, 8, 72, 4, 424, 456, 200}));
  EXPECT_EQ(Words(snapshot, 48, 6), (Words32{0x0E, 0, 5, 0x10, 5, 3}));
  const uint32_t sources[] = {1, 3, 2, 3, 0, 1, 3, 0};
  for (uint32_t i = 0; i < 8; ++i) {
    Words32 row = Words(snapshot, 72 + 44 * i, 11), expected(11, 0);
    expected[0] = sources[i];
    if (sources[i] == 2) {
      expected = {2, 0, 20, 21, 14, 0, 4, 0, 0, 0, 0};  // title, executable, arguments 0..3
    } else {
      row[5] = 0;  // firstArgument means nothing without arguments
    }
    EXPECT_EQ(row, expected) << i;
  }
  EXPECT_EQ(Words(snapshot, 424, 8), (Words32{36, 7, 44, 8, 53, 34, 88, 11}));
  using namespace std::string_literals;
  const std::u16string pool =
      u"Open PowerShell here\0powershell.exe\0-NoExit\0-Command\0"
      u"Set-Location -LiteralPath $args[0]\0{targetDir}\0"s;
  EXPECT_EQ(snapshot.substr(456),
            std::string(reinterpret_cast<const char*>(pool.data()), 2 * pool.size()));

  // control.bin: menu.json sets enabled, bypass and opacity; every other global is the fixed
  // default, and the font family and image path are empty.
  const std::string control = ReadBytes(ControlFilePath());
  ASSERT_EQ(control.size(), 720u);
  EXPECT_EQ(Words(control, 0, 23), (Words32{0x424E43D5, 18,  1, 1, 6, 78, 400, 12, 16,  8, 8, 0,
                                            0,          100, 0, 0, 0, 0,  0,   0,  135, 1, 1}));
  EXPECT_EQ(control.substr(92, 584), std::string(584, '\0'));
  EXPECT_EQ(Words(control, 676, 11), (Words32{1, 30, 65, 0, 200, 0, 0, 0, 0, 0, 460}));

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

  // Version 0 with its snapshot, as the count reaches after it wraps, is a publication.
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
  const std::string valuesSet =
      R"("appearance.customHeaderColor":"#1e1e1e","appearance.customHotkeyColor":"#0A0B0C",)"
      R"("general.nativeMenuBypass":"Alt","appearance.backgroundOpacityPercent":40,)"
      R"("appearance.fontWeight":"Semibold","appearance.backgroundMode":"dark",)"
      R"("appearance.backgroundImageFill":"tile","appearance.snapshotBlurEnabled":false,)"
      R"("taskbar.replaceClockMenu":false,"appearance.fontFamily":"Ab",)"
      R"("appearance.backgroundImagePath":"C:\\x")";
  const struct {
    const char* name;
    std::string text;
    const wchar_t* dacl;
    std::string output;
    std::vector<std::pair<size_t, Words32>> control;  // words expected at byte offsets
  } rows[] = {
      // A new control file announces no version; colours are COLORREFs, red in the low byte.
      {"others may write it",
       SettingsText(R"("appearance.customHeaderColor":"#0000ff")"),
       kEveryoneWrites,
       "  error:   " + kEveryone + "\n" + kNothingPublished,
       {{8, {0, 1, 6}}, {700, {0xFF0000}}}},
      // The settings file's own defaults (padding 3, margins 8 and 7) beside the values it sets;
      // the font "Ab" and the image path "C:\x" are UTF-16 units, two to a word.
      {"values set",
       SettingsText(valuesSet),
       nullptr,
       PublishedText("version 1 (224 bytes): 1 profile(s), 2 item(s), 1 user command(s)"),
       {{8, {1, 1, 1, 40, 600, 12, 16, 8, 3, 8, 7, 100, 0, 2}},
        {92, {0x00620041, 0}},
        {156, {0x003A0043, 0x0078005C, 0}},
        {676, {2, 30, 65, 1, 200, 0x22, 0x1E1E1E, 0, 0x0C0B0A, 0, 460}}}},
      {"a menu error",
       SettingsText(R"("appearance.customHeaderColor":"#0000ff")", "7"),
       nullptr,
       "  warning: profiles[0] has no usable items, so its contexts will show an empty menu.\n"
       "  error:   profiles[0].items[0] must be an object.\n" +
           kNothingPublished,
       {{8, {1, 1, 1, 40}}, {700, {0x1E1E1E}}}},
      {"a menu too large",
       SettingsText(
           R"("appearance.customHeaderColor":"#00ff00")",
           R"({"source":"user","executable":"x.exe","title":")" + std::string(600000, 't') + "\"}"),
       nullptr,
       "  error:   The configuration flattens to 1200128 bytes, over the 1048576 byte limit.\n" +
           kNothingPublished,
       {{8, {1}}, {700, {0x00FF00}}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    (void)DeleteFileIfPresent(settings);
    WriteBytes(settings, row.text);
    if (row.dacl) SetDacl(settings, row.dacl);
    const DWORD exitCode = row.output.starts_with("Published") ? 0 : 1;
    RunRows({{{L"config", L"publish"}, "Publishing " + source + "\n" + row.output, exitCode}});
    const std::string control = ReadBytes(ControlFilePath());
    for (const auto& [at, words] : row.control) EXPECT_EQ(Words(control, at, words.size()), words);
    EXPECT_EQ(ReadBytes(SnapshotFilePath(2)), "<unreadable>");
  }
  // One line, with the version in force. A document with errors is not flattened, so it has no
  // counts or size.
  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"bold","x":1)"));
  RunRows({{{L"config", L"validate", L"--json"},
            "{\"source\":" + ToUtf8(JsonQuote(settings)) +
                ",\"aclAccepted\":true,\"valid\":false,\"profileCount\":0,\"itemCount\":0,"
                "\"userCommandCount\":0,\"snapshotBytes\":0,\"publishedVersion\":1,"
                "\"errors\":[\"'appearance.fontWeight' is not a supported weight.\"],"
                "\"warnings\":[]}\n",
            1}});
  (void)DeleteFileIfPresent(settings);
}

}  // namespace
}  // namespace cmr::e2e
