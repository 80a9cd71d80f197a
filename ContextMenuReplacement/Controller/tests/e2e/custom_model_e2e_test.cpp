// custom-model as the Settings application and an operator use it: publishing the shipped
// baseline, then asking which layout and tree a right-click on each target gets.

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cstring>
#include <regex>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

using namespace std::string_literals;

std::wstring SchemaPath() {
  return InstallFolder() + L"\\Schema\\custom-menu.schema.json";
}
std::wstring BaselinePath() {
  return InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json";
}
std::wstring Published(const std::wstring& name) {
  return JoinPath(PublishedFolder(), name);
}
std::wstring SnapshotName(uint32_t version) {
  return L"custom-model-snapshot-" + std::to_wstring(version) + L".bin";
}

struct ShippedTarget {
  const wchar_t* target;
  const char* layout;
};
constexpr ShippedTarget kShipped[] = {
    {L"desktop", "desktop-default"},
    {L"folder-background", "folder-background-default"},
    {L"folder-item", "folder-item-default"},
    {L"drive", "drive-default"},
    {L"file-item", "file-item-default"},
    {L"taskbar-background", "taskbar-background-default"},
    {L"taskbar-clock", "taskbar-clock-default"},
    {L"taskbar-start", "taskbar-start-default"},
    {L"taskbar-app", "taskbar-app-default"},
    {L"file:.txt", "file-item-default"},
    {L"file:.JPG", "file-item-default"},
    {L"class:image", "file-item-default"},
};
constexpr const char* kNothingPublished = "No compatible custom model has been published yet.\n";
constexpr const char* kStillInEffect =
    "Nothing was published. The previously published custom model is still in effect.\n";

uint32_t PublishShipped() {
  const RunResult run = RunController({L"custom-model", L"publish", SchemaPath(), BaselinePath()});
  std::smatch match;
  static const std::regex published(
      "Published custom model version ([0-9]+): 9 layout\\(s\\), [0-9]+ node\\(s\\)\\.\n");
  EXPECT_TRUE(std::regex_match(run.output, match, published)) << run.output;
  EXPECT_EQ(run.exitCode, 0u);
  return match.empty() ? 0 : static_cast<uint32_t>(std::stoul(match[1]));
}

std::string ControlRecord(uint32_t version) {
  std::string bytes(12, '\0');
  const uint32_t words[3] = {0x424E43D6, 18, version};
  std::memcpy(bytes.data(), words, 12);
  return bytes;
}

// Counts the nodes of a JSON tree, checking the shape documented for it on the way.
size_t CountJsonNodes(const rapidjson::Value& items) {
  size_t count = 0;
  for (const rapidjson::Value& node : items.GetArray()) {
    EXPECT_TRUE(node.IsObject() && node.HasMember("id") && node["id"].IsString());
    EXPECT_TRUE(node.HasMember("kind") && node["kind"].IsString());
    ++count;
    if (node.HasMember("items")) count += CountJsonNodes(node["items"]);
  }
  return count;
}

TEST(CustomModelE2e, EveryShippedTargetBeforeAndAfterPublication) {
  ResetUserData();
  const RunResult validate =
      RunController({L"custom-model", L"validate", SchemaPath(), BaselinePath()});
  static const std::regex valid(
      "Valid\\. 9 layout\\(s\\), [0-9]+ node\\(s\\)\\. Nothing was published\\.\n");
  EXPECT_TRUE(std::regex_match(validate.output, valid)) << validate.output;
  EXPECT_EQ(validate.exitCode, 0u);
  EXPECT_FALSE(FileExists(Published(L"custom-model-control.bin")));
  EXPECT_FALSE(FileExists(Published(SnapshotName(1))));
  for (const ShippedTarget& shipped : kShipped) {
    for (const RunResult& run :
         {RunController({L"custom-model", L"effective", shipped.target}),
          RunController({L"custom-model", L"effective", shipped.target, L"--json"})}) {
      EXPECT_EQ(run.output, kNothingPublished);
      EXPECT_EQ(run.exitCode, 1u);
    }
  }

  ASSERT_EQ(PublishShipped(), 1u);
  EXPECT_EQ(ReadBytes(Published(L"custom-model-control.bin")), ControlRecord(1));
  static const std::regex line(
      "  (  )*- (\\(separator\\)|\\[[^\\]]+\\] (command \\S*|\\(.*\\)|.+ >))");
  for (const ShippedTarget& shipped : kShipped) {
    const std::string target = ToUtf8(shipped.target);
    const RunResult text = RunController({L"custom-model", L"effective", shipped.target});
    EXPECT_EQ(text.exitCode, 0u) << target;
    const std::string heading =
        "Layout '" + std::string(shipped.layout) + "' for target '" + target + "':\n";
    ASSERT_EQ(text.output.substr(0, heading.size()), heading) << text.output;
    size_t lines = 0;
    for (size_t at = heading.size(); at < text.output.size(); ++lines) {
      const size_t end = text.output.find('\n', at);
      ASSERT_NE(end, std::string::npos);
      const std::string row = text.output.substr(at, end - at);
      EXPECT_TRUE(std::regex_match(row, line)) << target << ": " << row;
      at = end + 1;
    }
    EXPECT_GT(lines, 0u) << target;

    const RunResult json =
        RunController({L"custom-model", L"effective", shipped.target, L"--json"});
    EXPECT_EQ(json.exitCode, 0u);
    ASSERT_EQ(json.output.back(), '\n');
    rapidjson::Document parsed;
    ASSERT_FALSE(parsed.Parse(json.output.c_str()).HasParseError()) << json.output;
    EXPECT_EQ(std::string(parsed["target"].GetString()), target);
    EXPECT_TRUE(parsed["matched"].GetBool());
    EXPECT_EQ(std::string(parsed["layoutId"].GetString()), shipped.layout);
    ASSERT_TRUE(parsed["tree"].IsArray());
    EXPECT_EQ(CountJsonNodes(parsed["tree"]), lines) << target;
  }

  // The shipped model has no namespace layouts, and the verb reports the raw scan.
  const std::wstring computer = L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}";
  RunResult run = RunController({L"custom-model", L"effective", computer});
  EXPECT_EQ(run.output, "No layout matches target '" + ToUtf8(computer) + "'.\n");
  EXPECT_EQ(run.exitCode, 0u);
  run = RunController({L"custom-model", L"effective", computer + L":none", L"--json"});
  EXPECT_EQ(run.output, "{\"target\":\"" + ToUtf8(computer) + ":none\",\"matched\":false}\n");
}

TEST(CustomModelE2e, RepublishingMovesForwardAndKeepsTwoSnapshots) {
  ResetUserData();
  ASSERT_EQ(PublishShipped(), 1u);
  ASSERT_EQ(PublishShipped(), 2u);
  const std::string second = ReadBytes(Published(SnapshotName(2)));
  const RunResult json =
      RunController({L"custom-model", L"publish", SchemaPath(), BaselinePath(), L"--json"});
  EXPECT_EQ(json.exitCode, 0u);
  static const std::regex shape(
      "\\{\"published\":true,\"version\":3,\"layoutCount\":9,\"nodeCount\":[0-9]+,\"errors\":\\[\\]"
      "\\}\n");
  EXPECT_TRUE(std::regex_match(json.output, shape)) << json.output;
  EXPECT_FALSE(FileExists(Published(SnapshotName(1))));
  EXPECT_EQ(ReadBytes(Published(SnapshotName(2))), second);
  // Only the version word differs between two publications of the same model.
  std::string third = ReadBytes(Published(SnapshotName(3)));
  ASSERT_EQ(third.size(), second.size());
  EXPECT_EQ(third[8], 3);
  third[8] = 2;
  EXPECT_EQ(third, second);
}

// Eight file-item layouts of 4,100 rows each compile to an image past 4 MiB.
std::string OversizedBaseline() {
  const auto n = [](int value) { return std::to_string(value); };
  std::string text =
      R"({"document_kind":"baseline","schema_version":2,"baseline_version":"big","layouts":[)";
  for (int layout = 0; layout < 8; ++layout) {
    text += (layout ? R"(,{"id":"big-)" : R"({"id":"big-)") + n(layout) +
            R"(","match":{"family":"file-item","extension":".big)" + n(layout) + R"("},"items":[)";
    for (int menu = 0; menu < 100; ++menu) {
      text += (menu ? "," : "") + R"({"type":"submenu","id":"m)"s + n(menu) + R"(","items":[)";
      for (int command = 0; command < 40; ++command) {
        const std::string id = n(menu) + "-" + n(command);
        text += (command ? "," : "") + R"({"type":"command","id":"c)"s + id +
                R"(","command_id":"windows:c)" + id + R"("})";
      }
      text += "]}";
    }
    text += "]}";
  }
  return text + "]}";
}

TEST(CustomModelE2e, InvalidOrOversizedBaselineIsNeverPublished) {
  ResetUserData();
  ASSERT_EQ(PublishShipped(), 1u);
  const std::string control = ReadBytes(Published(L"custom-model-control.bin"));
  const std::wstring scratch = ScratchFolder(L"custom-model-invalid");
  const auto publish = [&](const char* name, const std::string& bytes, bool json = false) {
    WriteBytes(scratch + L"\\" + FromUtf8(name), bytes);
    std::vector<std::wstring> args = {L"custom-model", L"publish", SchemaPath(),
                                      scratch + L"\\" + FromUtf8(name)};
    if (json) args.push_back(L"--json");
    return RunController(args);
  };

  // Two layouts with one id: a refusal whatever else the document gets right.
  const std::string layout =
      R"({"id":"d","match":{"family":"drive"},"items":[{"type":"separator","id":"s"}]})";
  RunResult run = publish("duplicate.json", R"({"document_kind":"baseline","schema_version":2,)"
                                            R"("layouts":[)" +
                                                layout + "," + layout + "]}");
  EXPECT_EQ(run.output, std::string("  error:   Duplicate layout id 'd'.\n") + kStillInEffect);
  EXPECT_EQ(run.exitCode, 1u);
  // A process-local field is the schema's to refuse, in one message; so is a missing kind.
  run = publish("handle.json", R"({"document_kind":"baseline","schema_version":2,"layouts":[)"
                               R"({"id":"d","hwnd":1,"match":{"family":"drive"},"items":[]}]})");
  EXPECT_EQ(run.output,
            "  error:   The baseline does not satisfy custom-menu.schema.json. The "
            "'additionalProperties' rule at schema location '#/definitions/layout' rejects "
            "'#/layouts/0/hwnd'.\n" +
                std::string(kStillInEffect));
  run = publish("kindless.json", R"({"schema_version":2,"layouts":[]})");
  EXPECT_EQ(run.output,
            "  error:   The baseline does not satisfy custom-menu.schema.json. The 'required' "
            "rule at schema location '#' rejects '#'.\n" +
                std::string(kStillInEffect));
  run = publish("big.json", OversizedBaseline());
  EXPECT_EQ(run.output,
            std::string("  error:   The custom model snapshot exceeded its size limit.\n") +
                kStillInEffect);
  EXPECT_EQ(run.exitCode, 1u);
  const std::string broken = "{\"document_kind\": \"baseline\",";
  const std::string where =
      "The baseline has a JSON parse error at offset 29: Missing a name for "
      "object member.";
  run = publish("broken.json", broken);
  EXPECT_EQ(run.output, "  error:   The schema or baseline is not valid JSON.\n  error:   " +
                            where + "\n" + kStillInEffect);
  run = publish("broken.json", broken, true);
  EXPECT_EQ(run.output,
            "{\"published\":false,\"version\":0,\"layoutCount\":0,\"nodeCount\":0,\"errors\":"
            "[\"The schema or baseline is not valid JSON.\",\"" +
                where + "\"]}\n");
  // Hostile documents: a model that serves nothing, and a schema that refers to itself.
  run = publish("empty.json", R"({"document_kind":"baseline","schema_version":2,"layouts":[]})");
  EXPECT_EQ(run.output,
            "  error:   The baseline has no layouts, so the published model would "
            "claim no context.\n" +
                std::string(kStillInEffect));
  WriteBytes(scratch + L"\\loop.schema.json",
             R"({"definitions":{"a":{"$ref":"#/definitions/a"}}})");
  run = RunController({L"custom-model", L"publish", scratch + L"\\loop.schema.json",
                       scratch + L"\\duplicate.json"});
  EXPECT_EQ(run.output,
            "  error:   The baseline does not satisfy custom-menu.schema.json. The schema at "
            "'#/definitions/a' refers back to itself without descending into the document.\n" +
                std::string(kStillInEffect));
  run = RunController({L"custom-model", L"publish", SchemaPath(), scratch + L"\\missing.json"});
  EXPECT_EQ(run.output, std::string("ERROR: The schema or baseline file could not be read.\n") +
                            kStillInEffect);
  EXPECT_EQ(run.exitCode, 1u);
  run = RunController({L"custom-model", L"validate", SchemaPath(), scratch + L"\\broken.json"});
  EXPECT_EQ(run.output, "  error:   The schema or baseline is not valid JSON.\n  error:   " +
                            where + "\nNot valid; nothing was published.\n");
  EXPECT_EQ(run.exitCode, 1u);

  EXPECT_EQ(ReadBytes(Published(L"custom-model-control.bin")), control);
  EXPECT_FALSE(FileExists(Published(SnapshotName(2))));
  EXPECT_EQ(RunController({L"custom-model", L"effective", L"desktop"}).output.substr(0, 33),
            "Layout 'desktop-default' for targ");
}

TEST(CustomModelE2e, UnreadableSnapshotIsReported) {
  ResetUserData();
  ASSERT_EQ(PublishShipped(), 1u);
  std::string image = ReadBytes(Published(SnapshotName(1)));
  uint32_t nodesOffset;
  std::memcpy(&nodesOffset, image.data() + 40, 4);
  const uint32_t kind = 11;
  std::memcpy(image.data() + nodesOffset + 8, &kind, 4);
  WriteBytes(Published(SnapshotName(2)), image);
  WriteBytes(Published(L"custom-model-control.bin"), ControlRecord(2));
  RunResult run = RunController({L"custom-model", L"effective", L"desktop"});
  EXPECT_EQ(run.output, "The published custom model snapshot is not readable.\n");
  EXPECT_EQ(run.exitCode, 1u);

  // A control record naming a snapshot that does not exist reads the same way.
  WriteBytes(Published(L"custom-model-control.bin"), ControlRecord(9));
  EXPECT_EQ(RunController({L"custom-model", L"effective", L"desktop"}).output,
            "The published custom model snapshot is not readable.\n");
  // Version 0 in the control record means nothing was published.
  WriteBytes(Published(L"custom-model-control.bin"), ControlRecord(0));
  EXPECT_EQ(RunController({L"custom-model", L"effective", L"desktop"}).output, kNothingPublished);
  // The next publication continues from the record as it stands: a fresh start at 1.
  EXPECT_EQ(PublishShipped(), 1u);
}

TEST(CustomModelE2e, ArgumentErrorsAndStubs) {
  const std::string unknownTarget =
      "Unknown target 'bogus'. Use desktop, folder-background, folder-item, drive, file-item, "
      "class:<perceived-type>, file:<ext>, or namespace:<guid>[:none|single|multi].\n";
  struct Case {
    std::vector<std::wstring> args;
    std::string output;
  };
  const Case cases[] = {
      {{L"publish", L"schema.json"}, "custom-model publish needs <schema> <baseline>.\n"},
      {{L"publish", L"--json"}, "custom-model publish needs <schema> <baseline>.\n"},
      {{L"publish-user", L"a", L"b"},
       "custom-model publish-user needs <schema> <baseline> <overlay>.\n"},
      {{L"validate-user"}, "custom-model validate-user needs <schema> <baseline> <overlay>.\n"},
      {{L"publish-user", L"a", L"b", L"c", L"--json"},
       "{\"published\":false,\"version\":0,\"layoutCount\":0,\"nodeCount\":0,\"errors\":"
       "[\"The schema, baseline or overlay file could not be read.\"]}\n"},
      {{L"effective"}, "custom-model effective needs <target>.\n"},
      {{L"effective", L"bogus"}, unknownTarget},
      {{L"reset"}, "custom-model reset needs <schema> <baseline> [target] in this pass.\n"},
      {{L"reset", L"a"},
       "custom-model reset usage: custom-model reset [<schema> <baseline> [target]]\n"},
      {{L"prepare-reset", L"a", L"b", L"c", L"d"},
       "custom-model reset usage: custom-model reset [<schema> <baseline> [target]]\n"},
      {{L"reset", L"a", L"b"}, "ERROR: The schema or baseline file could not be read.\n"},
      {{L"preview"}, "custom-model preview needs <target>.\n"},
      {{L"preview", L"bogus"}, unknownTarget},
      {{L"preview", L"desktop"},
       "Synthetic live preview is not implemented. Use the editor preview or an actual Explorer "
       "context menu.\n"},
      {{L"Publish"},
       "Unknown custom-model action 'Publish'. Use publish, publish-user, validate-user, "
       "effective, "
       "reset, or preview.\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::wstring> args = {L"custom-model"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const RunResult run = RunController(args);
    EXPECT_EQ(run.output, c.output) << ToUtf8(c.args[0]);
    EXPECT_EQ(run.exitCode, 1u) << ToUtf8(c.args[0]);
  }
}

}  // namespace
}  // namespace cmr::e2e
