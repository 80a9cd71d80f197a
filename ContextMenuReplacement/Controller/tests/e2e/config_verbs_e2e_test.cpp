// The config verbs as a user and the Settings application see them: console bytes, exit codes
// and the bytes of the published files.

#include <aclapi.h>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sddl.h>

#include "cli/data_paths.h"
#include "common/byte_image.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "config/config_snapshot.h"
#include "config/menu_document.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

const std::string kNothingPublished =
    "Nothing was published. The previously published configuration is still in effect,\n"
    "so the context menu keeps working while this is fixed.\n";

std::string U8(const std::wstring& text) {
  return ToUtf8(text);
}

MenuConfiguration StarterConfiguration() {
  rapidjson::Document document;
  JsonParseFailure failure;
  EXPECT_TRUE(ParseJsonText(StarterDocumentText(), true, document, failure));
  MenuConfiguration config;
  MessageList errors, warnings;
  EXPECT_TRUE(ParseMenuDocument(document, config, errors, warnings));
  return config;
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

const std::string kEveryone =
    "\\Everyone (S-1-1-0) can modify this file. Because it names executables that run on every "
    "right-click, only you, SYSTEM and Administrators may have write access.";

TEST(ConfigVerbsE2e, InitPublishStatusWithTheStarterDocument) {
  ResetUserData();
  const std::wstring menu = JoinPath(ScratchFolder(L"config-init"), L"menu.json");
  const std::string path = U8(menu);

  RunResult run = RunController({L"config", L"status", menu});
  EXPECT_EQ(run.output,
            "No configuration has been published yet.\nFile: " + path + " (not present)\n");
  EXPECT_EQ(run.exitCode, 0u);

  run = RunController({L"config", L"init", menu});
  EXPECT_EQ(run.output, "Wrote a starter configuration to " + path +
                            "\nEdit it, then run 'config publish' or leave 'config watch' "
                            "running.\n");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(ReadBytes(menu), StarterDocumentText());
  run = RunController({L"config", L"init", menu});
  EXPECT_EQ(run.output, "'" + path + "' already exists; refusing to overwrite it.\n");
  EXPECT_EQ(run.exitCode, 1u);

  run = RunController({L"config", L"check", menu});
  EXPECT_EQ(run.output,
            "ACL accepted: only you, SYSTEM and Administrators can modify this file.\n");
  EXPECT_EQ(run.exitCode, 0u);

  run = RunController({L"config", L"publish", menu, L"--json"});
  EXPECT_EQ(run.output, "Publishing " + path +
                            "\nPublished version 1 (656 bytes): 2 profile(s), 8 item(s), 1 user "
                            "command(s).\nThe next menu uses it. Explorer does not need to "
                            "restart.\n");
  EXPECT_EQ(run.exitCode, 0u);
  const MenuConfiguration starter = StarterConfiguration();
  // menu.json sets enabled, bypass and opacity; every other global is the fixed default.
  EXPECT_EQ(ReadBytes(ControlFilePath()), EncodeControlBlock(starter, 1));
  EXPECT_EQ(ReadBytes(SnapshotFilePath(1)), FlattenConfiguration(starter, 1));

  run = RunController({L"config", L"status", menu});
  EXPECT_EQ(run.output, "Published version 1 (layout 18)\nFile:     " + path +
                            "\nSnapshot: " + U8(SnapshotFilePath(1)) + "\n");
  run = RunController({L"config", L"publish", menu});
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(ReadBytes(SnapshotFilePath(2)), FlattenConfiguration(starter, 2));
  EXPECT_EQ(ReadBytes(SnapshotFilePath(1)), FlattenConfiguration(starter, 1));

  run = RunController({L"config", L"path", menu});
  EXPECT_EQ(run.output, path + "\n");
  run = RunController({L"config", L"path"});
  EXPECT_EQ(run.output, U8(SettingsFilePath()) + "\n");
  run = RunController({L"config", L"Publish"});
  EXPECT_EQ(run.output,
            "Unknown config action 'Publish'. Use init, path, check, publish, watch, or status.\n");
  EXPECT_EQ(run.exitCode, 1u);
}

TEST(ConfigVerbsE2e, BadInputNeverChangesWhatIsPublished) {
  ResetUserData();
  const std::wstring folder = ScratchFolder(L"config-refusals");
  const std::wstring good = JoinPath(folder, L"menu.json");
  WriteBytes(good, std::string(StarterDocumentText()));
  ASSERT_EQ(RunController({L"config", L"publish", good}).exitCode, 0u);
  const std::string control = ReadBytes(ControlFilePath());

  const std::wstring missing = JoinPath(folder, L"missing.json");
  const std::wstring broken = JoinPath(folder, L"broken.json");
  WriteBytes(broken, "// comment\n{\"profiles\": [}");
  const std::wstring invalid = JoinPath(folder, L"invalid.json");
  WriteBytes(invalid, R"({"enabled": 0, "profiles": [{"match": {"context": ["x"]}}]})");
  const std::wstring huge = JoinPath(folder, L"huge.json");
  WriteBytes(huge, R"({"profiles":[{"match":{"context":["folder-item"]},"items":[{"source":"user",)"
                   R"("executable":"x.exe","title":")" +
                       std::string(600000, 't') + "\"}]}]}");
  const std::wstring untrusted = JoinPath(folder, L"untrusted.json");
  WriteBytes(untrusted, std::string(StarterDocumentText()));
  AllowEveryoneToWrite(untrusted);

  const struct {
    std::wstring file;
    std::string messages;
  } cases[] = {
      {missing,
       "  error:   '" + U8(missing) + "' does not exist. Run 'config init' to create one.\n"},
      {broken, "  error:   JSON parse error at offset 25: Invalid value.\n"},
      {invalid,
       "  warning: profiles[0].match.context[0] is 'x', which is not a known context, and was "
       "skipped. Use desktop-background, folder-background, folder-item or other-item.\n"
       "  warning: profiles[0] matches no known context (all entries were unrecognized), so it "
       "was skipped.\n"
       "  error:   'enabled' must be true or false.\n"},
      {huge,
       "  error:   The configuration flattens to 1200128 bytes, over the 1048576 byte limit.\n"},
      {untrusted, "  error:   " + kEveryone + "\n"},
  };
  for (const auto& c : cases) {
    const RunResult run = RunController({L"config", L"publish", c.file});
    EXPECT_EQ(run.output, "Publishing " + U8(c.file) + "\n" + c.messages + kNothingPublished)
        << U8(c.file);
    EXPECT_EQ(run.exitCode, 1u) << U8(c.file);
    EXPECT_EQ(ReadBytes(ControlFilePath()), control);
    EXPECT_EQ(ReadBytes(SnapshotFilePath(2)), "<unreadable>");
  }

  const RunResult check = RunController({L"config", L"check", untrusted});
  EXPECT_EQ(check.output, "  " + kEveryone +
                              "\nACL REJECTED. This file will not be published until its "
                              "permissions are fixed.\n");
  EXPECT_EQ(check.exitCode, 1u);
}

std::string SettingsText(const std::string& settings) {
  return R"({"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{)" +
         settings +
         R"(,"menu.profiles":[{"match":{"context":["desktop-background"]},"items":[)"
         R"({"source":"modern"},{"source":"user","title":"Notes","executable":"notepad.exe",)"
         R"("arguments":["{targetPath}"]}]}]}},{"app_id":"window-organizer","status":"disabled"}]})";
}

TEST(ConfigVerbsE2e, ValidateReadsOnlyTheSettingsFileAndWritesNothing) {
  ResetUserData();
  RunResult run = RunController({L"config", L"validate", L"menu.json"});
  EXPECT_EQ(run.output, "config validate reads the settings file; it takes no path argument.\n");
  EXPECT_EQ(run.exitCode, 1u);

  const std::wstring settings = SettingsFilePath();
  const std::string source = U8(settings);
  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"Bold")"));
  run = RunController({L"config", L"validate"});
  EXPECT_EQ(run.output, "Validating " + source +
                            "\nValid. 1 profile(s), 2 item(s), 1 user command(s). Nothing was "
                            "published.\n");
  EXPECT_EQ(run.exitCode, 0u);

  WriteBytes(settings, SettingsText(R"("appearance.fontWeight":"bold","x":1)"));
  run = RunController({L"config", L"validate", L"--json"});
  EXPECT_EQ(run.exitCode, 1u);
  ASSERT_EQ(run.output.back(), '\n');
  EXPECT_EQ(run.output.find('\n'), run.output.size() - 1);
  rapidjson::Document json;
  ASSERT_FALSE(json.Parse(run.output.c_str()).HasParseError()) << run.output;
  EXPECT_EQ(run.output.substr(0, 11), "{\"source\":\"");
  EXPECT_EQ(std::string(json["source"].GetString()), source);
  EXPECT_TRUE(json["aclAccepted"].GetBool());
  EXPECT_FALSE(json["valid"].GetBool());
  // A document with errors is not flattened, so it has no counts or size.
  EXPECT_EQ(json["profileCount"].GetUint(), 0u);
  EXPECT_EQ(json["snapshotBytes"].GetUint(), 0u);
  EXPECT_EQ(json["publishedVersion"].GetUint(), 0u);
  EXPECT_EQ(std::string(json["errors"][0].GetString()),
            "'appearance.fontWeight' is not a supported weight.");
  EXPECT_NE(run.output.find("\"itemCount\":0,\"userCommandCount\":0,\"snapshotBytes\":0,"
                            "\"publishedVersion\":0,\"errors\":["),
            std::string::npos);
  EXPECT_FALSE(DirectoryExists(PublishedFolder()));

  // Without a file, init targets the settings file, which exists.
  run = RunController({L"config", L"init"});
  EXPECT_EQ(run.output, "'" + source + "' already exists; refusing to overwrite it.\n");
}

TEST(ConfigVerbsE2e, SettingsFileGlobalsAreAppliedEvenWhenItsMenuIsRefused) {
  ResetUserData();
  const std::wstring settings = SettingsFilePath();
  WriteBytes(settings,
             SettingsText(R"("appearance.customHeaderColor":"#1e1e1e",)"
                          R"("general.nativeMenuBypass":"Alt","taskbar.replaceClockMenu":false)"));
  RunResult run = RunController({L"config", L"publish"});
  EXPECT_EQ(run.output, "Publishing " + U8(settings) +
                            "\nPublished version 1 (224 bytes): 1 profile(s), 2 item(s), 1 user "
                            "command(s).\nThe next menu uses it. Explorer does not need to "
                            "restart.\n");
  std::string control = ReadBytes(ControlFilePath());
  ByteImageReader in(control);
  EXPECT_EQ(in.U32(8), 1u);
  EXPECT_EQ(in.U32(16), 1u);      // Alt
  EXPECT_EQ(in.U32(40), 3u);      // the settings file's vertical menu padding
  EXPECT_EQ(in.U32(696), 0x22u);  // clock menu and window organizer
  EXPECT_EQ(in.U32(700), 0x1E1E1Eu);

  WriteBytes(settings, SettingsText(R"("appearance.customHeaderColor":"#0000ff")"));
  AllowEveryoneToWrite(settings);
  run = RunController({L"config", L"publish"});
  EXPECT_EQ(run.output,
            "Publishing " + U8(settings) + "\n  error:   " + kEveryone + "\n" + kNothingPublished);
  EXPECT_EQ(run.exitCode, 1u);
  control = ReadBytes(ControlFilePath());
  ByteImageReader after(control);
  EXPECT_EQ(after.U32(8), 1u);
  EXPECT_EQ(after.U32(16), 6u);
  EXPECT_EQ(after.U32(700), 0xFF0000u);
  EXPECT_EQ(ReadBytes(SnapshotFilePath(2)), "<unreadable>");
  (void)DeleteFileIfPresent(settings);
}

}  // namespace
}  // namespace cmr::e2e
