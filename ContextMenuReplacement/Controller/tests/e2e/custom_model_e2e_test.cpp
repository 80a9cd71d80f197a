// custom-model as the Settings application and an operator use it: the shipped baseline read back
// per target, the overlay validated, published, migrated and reset, refusals changing nothing.

#include <gtest/gtest.h>

#include <cstring>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/user_icons.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

using namespace std::string_literals;

const std::wstring kSchema = InstallFolder() + L"\\Schema\\custom-menu.schema.json";
const std::wstring kBaseline = InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json";

RunResult Model(std::vector<std::wstring> args) {
  args.insert(args.begin(), L"custom-model");
  return RunController(args);
}

const std::string kNothingPublished = "No compatible custom model has been published yet.\n";
const std::string kStillInEffect =
    "Nothing was published. The previously published custom model is still in effect.\n";
const std::string kHeader =
    R"({"document_kind":"overlay","schema_version":2,"baseline_version":"win11-shell-2026.11",)";

// One title of 2,100,000 characters compiles to an image past 4 MiB.
std::string OversizedBaseline() {
  return R"({"document_kind":"baseline","schema_version":2,"layouts":[{"id":"big","match":)"
         R"({"family":"file-item"},"items":[{"type":"submenu","id":"m","title_override":")" +
         std::string(2'100'000, 'x') +
         R"(","items":[{"type":"command","id":"c","command_id":"windows:c"}]}]}]})";
}

// Numbering and clean-up are the publisher's own tests; here the verbs as an operator runs them.
// Each refusal prints its errors, then the sentence of its verb, and publishes nothing.
TEST(CustomModelE2e, ShippedBaselineReadBackPerTargetAndRefusalsChangeNothing) {
  ResetUserData();
  RunResult run = Model({L"validate", kSchema, kBaseline});
  EXPECT_EQ(run.output, "Valid. 9 layout(s), 177 node(s). Nothing was published.\n");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(Model({L"effective", L"desktop", L"--json"}).output, kNothingPublished);
  run = Model({L"publish", kSchema, kBaseline});
  EXPECT_EQ(run.output, "Published custom model version 1: 9 layout(s), 177 node(s).\n");
  EXPECT_EQ(run.exitCode, 0u);
  run = Model({L"publish", kSchema, kBaseline, L"--json"});
  EXPECT_EQ(
      run.output,
      "{\"published\":true,\"version\":2,\"layoutCount\":9,\"nodeCount\":177,\"errors\":[]}\n");
  // Only the version word tells two publications of one model apart.
  const std::string second = ReadBytes(CustomModelSnapshotPath(2));
  std::string first = ReadBytes(CustomModelSnapshotPath(1));
  first[8] = 2;
  EXPECT_EQ(first, second);

  // Both renderings for a family and for an extension in another case.
  const std::pair<const wchar_t*, const char*> shipped[] = {{L"desktop", "desktop-default"},
                                                            {L"file:.JPG", "file-item-default"}};
  for (const auto& [target, layout] : shipped) {
    SCOPED_TRACE(ToUtf8(target));
    const std::string text = Model({L"effective", target}).output;
    ASSERT_TRUE(text.starts_with("Layout '"s + layout + "' for target '" + ToUtf8(target) + "':\n"))
        << text;
    // The JSON tree has a node for every line of the text one.
    const std::string json = Model({L"effective", target, L"--json"}).output;
    EXPECT_TRUE(json.starts_with("{\"target\":\"" + ToUtf8(target) +
                                 "\",\"matched\":true,\"layoutId\":\"" + layout + "\",\"tree\":["))
        << json;
    EXPECT_TRUE(json.ends_with("]}\n")) << json;
    EXPECT_EQ(Count(json, "\"kind\":"), Count(text, "\n") - 1);
  }
  // The shipped model has no namespace layouts.
  const std::wstring computer = L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}";
  EXPECT_EQ(Model({L"effective", computer}).output,
            "No layout matches target '" + ToUtf8(computer) + "'.\n");
  EXPECT_EQ(Model({L"effective", computer + L":none", L"--json"}).output,
            "{\"target\":\"" + ToUtf8(computer) + ":none\",\"matched\":false}\n");

  const std::string control = ReadBytes(CustomModelControlPath());
  const std::wstring scratch = ScratchFolder(L"custom-model-refused");
  const std::string broken = "{\"document_kind\": \"baseline\",";
  const struct {
    const wchar_t* verb;
    int slot;  // the file the document stands in for: 1 schema, 2 baseline, 3 overlay
    std::string document, error;
  } rows[] = {
      {L"publish", 1, R"({"definitions":{"a":{"$ref":"#/definitions/a"}}})",
       "The baseline does not satisfy custom-menu.schema.json. The schema at '#/definitions/a' "
       "refers back to itself without descending into the document."},
      {L"publish", 2, R"({"document_kind":"baseline","schema_version":2,"layouts":[]})",
       "The baseline has no layouts, so the published model would claim no context."},
      {L"publish", 2, OversizedBaseline(), "The custom model snapshot exceeded its size limit."},
      {L"validate", 2, broken,
       "The schema or baseline is not valid JSON.\n  error:   The baseline has a JSON parse error "
       "at offset 29: Missing a name for object member."},
      {L"publish-user", 3,
       kHeader + R"("node_overrides":[{"layout_id":"drive-default","node_id":"nope"}]})",
       "node_override references unknown node 'nope' in layout 'drive-default'."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    std::vector<std::wstring> args = {row.verb, kSchema, kBaseline, scratch + L"\\doc.json"};
    WriteBytes(args.back(), row.document);
    if (row.slot < 3) {
      std::swap(args[row.slot], args.back());
      args.pop_back();
    }
    run = Model(args);
    EXPECT_EQ(run.output, "  error:   " + row.error + "\n" +
                              (std::wstring_view(row.verb).starts_with(L"validate")
                                   ? "Not valid; nothing was published.\n"
                                   : kStillInEffect));
    EXPECT_EQ(run.exitCode, 1u);
  }
  // The same as JSON; and a file that cannot be read is a fatal refusal.
  const std::string refused =
      "{\"published\":false,\"version\":0,\"layoutCount\":0,\"nodeCount\":0,\"errors\":[";
  WriteBytes(scratch + L"\\broken.json", broken);
  EXPECT_EQ(Model({L"publish", kSchema, scratch + L"\\broken.json", L"--json"}).output,
            refused +
                "\"The schema or baseline is not valid JSON.\",\"The baseline has a JSON "
                "parse error at offset 29: Missing a name for object member.\"]}\n");
  const std::wstring missing = scratch + L"\\missing.json";
  EXPECT_EQ(Model({L"publish-user", kSchema, kBaseline, missing, L"--json"}).output,
            refused + "\"The schema, baseline or overlay file could not be read.\"]}\n");
  run = Model({L"publish", kSchema, missing});
  EXPECT_EQ(run.output, "ERROR: The schema or baseline file could not be read.\n" + kStillInEffect);
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(ReadBytes(CustomModelControlPath()), control);
  EXPECT_FALSE(FileExists(CustomModelSnapshotPath(3)));

  // A control record naming a snapshot the reader refuses or one that is missing, or naming none.
  uint32_t nodes;
  std::memcpy(&nodes, second.data() + 40, 4);
  first[nodes + 8] = 11;  // the first node's kind
  WriteBytes(CustomModelSnapshotPath(3), first);
  const std::string unreadable = "The published custom model snapshot is not readable.\n";
  for (const auto& [version, output] :
       {std::pair{3u, unreadable}, std::pair{9u, unreadable}, std::pair{0u, kNothingPublished}}) {
    WriteBytes(CustomModelControlPath(), CustomModelControlRecord(version));
    run = Model({L"effective", L"desktop"});
    EXPECT_EQ(run.output, output);
    EXPECT_EQ(run.exitCode, 1u);
  }
}

// Merging is the overlay fixtures' concern; here a user command with its icon, and a hide on the
// abstract parent of both background layouts.
const std::string kOverlay =
    kHeader +
    R"("insertions":[{"layout_id":"folder-background-default","parent_id":"view","node":)"
    R"({"type":"command","id":"my-tool","command_id":"user:{00000000-0000-0000-0000-0000000000aa}",)"
    R"("title":"My tool","executable":"C:\\tools\\tool.exe","arguments":["--here"],"order":99,)"
    R"("icon_path":"C:\\windows\\notepad.exe"}}],)"
    R"("node_overrides":[{"layout_id":"background-base","node_id":"sort","visibility":"hidden"}]})";

const std::string kLegacy =
    R"({"document_kind":"overlay","schema_version":2,"baseline_version":)"
    R"("win11-shell-2026.08-slice2","node_overrides":[{"layout_id":)"
    R"("folder-background-default","node_id":"fb-group","visibility":"hidden"}]})";

std::vector<std::wstring> FilesIn(const std::wstring& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW((folder + L"\\*").c_str(), &entry));
  for (bool more = find.valid(); more; more = ::FindNextFileW(find.get(), &entry))
    if (entry.cFileName[0] != L'.') names.emplace_back(entry.cFileName);
  return names;
}

TEST(CustomModelE2e, OverlayValidatedPublishedMigratedAndReset) {
  ResetUserData();
  const std::wstring folder = ScratchFolder(L"overlay-publish");
  std::wstring overlay = folder + L"\\overlay.json";
  WriteBytes(overlay, kOverlay);
  // 177 shipped rows, + my-tool; "sort" hidden on the background parent reaches the desktop's
  // inherited copy (-5), not the folder background's own redefined row. Validation publishes and
  // caches nothing.
  RunResult run = Model({L"validate-user", kSchema, kBaseline, overlay});
  EXPECT_EQ(run.output, "Valid. 9 layout(s), 173 node(s). Nothing was published.\n");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_EQ(Model({L"validate-user", kSchema, kBaseline, overlay, L"--json"}).output,
            "{\"published\":false,\"version\":0,\"layoutCount\":9,\"nodeCount\":173,"
            "\"errors\":[]}\n");
  EXPECT_FALSE(FileExists(CustomModelControlPath()));
  EXPECT_FALSE(DirectoryExists(ProductFolder() + L"\\user-icons"));
  EXPECT_EQ(Model({L"publish-user", kSchema, kBaseline, overlay}).output,
            "Published custom model version 1: 9 layout(s), 173 node(s).\n");
  // The icon was extracted once into the cache, and the published rows name the cached file.
  const std::wstring icon = UserIconCachePath(L"C:\\windows\\notepad.exe");
  EXPECT_EQ(ReadBytes(icon).substr(0, 4), std::string("\0\0\1\0", 4));  // an icon file
  EXPECT_PRED2(Has, ReadBytes(CustomModelSnapshotPath(1)),
               std::string(reinterpret_cast<const char*>(icon.data()), 2 * icon.size()));
  EXPECT_PRED2(Has, Model({L"effective", L"folder-background"}).output,
               "    - [my-tool] command user:{00000000-0000-0000-0000-0000000000aa}\n  - [sort]");

  // An overlay saved by the predecessor release: its prefixed ids are migrated and the
  // re-stamped overlay is saved back before the publication; validation saves nothing.
  WriteBytes(overlay, kLegacy);
  EXPECT_EQ(Model({L"validate-user", kSchema, kBaseline, overlay}).exitCode, 0u);
  EXPECT_EQ(ReadBytes(overlay), kLegacy);
  // Killed while saving it back (a test build of the controller dies there, the temporary
  // written and never renamed): the next publication removes what it left.
  ::SetEnvironmentVariableW(L"CMR_FILE_STEP_EXIT", L"1");
  EXPECT_EQ(RunControllerAt(JoinPath(ExecutableFolder(), L"step_controller.exe"),
                            {L"custom-model", L"publish-user", kSchema, kBaseline, overlay})
                .exitCode,
            86u);
  ::SetEnvironmentVariableW(L"CMR_FILE_STEP_EXIT", nullptr);
  EXPECT_EQ(FilesIn(folder).size(), 2u);
  EXPECT_EQ(Model({L"publish-user", kSchema, kBaseline, overlay}).output,
            "Published custom model version 2: 9 layout(s), 169 node(s).\n");
  EXPECT_EQ(FilesIn(folder), std::vector<std::wstring>{L"overlay.json"});
  const std::string saved = ReadBytes(overlay);
  EXPECT_PRED2(Has, saved, "\"baseline_version\": \"win11-shell-2026.11\"");
  EXPECT_PRED2(Has, saved, "\"node_id\": \"group\"");

  // Resets act on the overlay in its own place.
  overlay = OverlayPath(L"");
  const auto reset = [](const wchar_t* verb, std::vector<std::wstring> target,
                        const std::string& output, DWORD exitCode = 0) {
    target.insert(target.begin(), {verb, kSchema, kBaseline});
    const RunResult run = Model(target);
    EXPECT_EQ(run.output, output);
    EXPECT_EQ(run.exitCode, exitCode);
  };
  reset(L"reset", {},
        "No overlay existed; the overlay and republished the baseline: version 3, 9 layout(s), "
        "177 node(s).\n");
  reset(L"reset", {L"desktop"}, "No customizations exist for target 'desktop'.\n");
  const std::string hides = R"("node_overrides":[{"layout_id":"desktop-default","node_id":)"
                            R"("refresh","visibility":"hidden"})";
  const std::string text =
      kHeader + hides +
      R"(,{"layout_id":"drive-default","node_id":"eject","visibility":"hidden"}],)"
      R"("extension_rules":[{"id":"r","command_id":"classic:verb:x","match":{"family":)"
      R"(["drive"]},"action":{"kind":"hide"}}]})";
  WriteBytes(overlay, text);
  reset(L"prepare-reset", {L"drive"},
        "{\"overlay\":" + kHeader + hides + "],\"extension_rules\":[]}}\n");
  reset(L"prepare-reset", {L"taskbar-clock"}, "{\"unchanged\":true}\n");
  reset(L"reset", {L"taskbar-clock"},
        "No customizations reference target 'taskbar-clock'; nothing to reset.\n");
  EXPECT_EQ(ReadBytes(overlay), text);
  reset(L"reset", {L"drive"},
        "Reset target 'drive' and republished: version 4, 9 layout(s), 176 node(s).\n");
  EXPECT_FALSE(Has(ReadBytes(overlay), "eject"));
  EXPECT_PRED2(Has, ReadBytes(overlay), "refresh");
  reset(L"reset", {},
        "Removed the overlay and republished the baseline: version 5, 9 layout(s), 177 "
        "node(s).\n");
  EXPECT_FALSE(FileExists(overlay));
  WriteBytes(overlay, "{not json");
  reset(L"reset", {L"drive"},
        "The overlay file is not valid JSON; cannot perform a target-scoped reset.\n", 1);
  // A full reset refuses an invalid baseline before it touches the overlay.
  EXPECT_EQ(Model({L"reset", kSchema, kSchema}).exitCode, 1u);
  EXPECT_EQ(ReadBytes(overlay), "{not json");
}

TEST(CustomModelE2e, PlacementOverlayWithEditsPoliciesAndDefinitions) {
  ResetUserData();
  const std::wstring scratch = ScratchFolder(L"overlay-placement");
  std::string baseline = ReadBytes(kBaseline);
  baseline.replace(baseline.find("\"schema_version\": 2"), 19, "\"schema_version\": 3");
  WriteBytes(scratch + L"\\baseline.json", baseline);
  const std::string pad = "user:{00000000-0000-0000-0000-0000000000bb}";
  WriteBytes(
      scratch + L"\\overlay.json",
      R"({"document_kind":"overlay","schema_version":3,"baseline_version":"win11-shell-2026.11",)"
      R"("command_definitions":[{"command_id":"user:{00000000-0000-0000-0000-0000000000bb}",)"
      R"("title":"Edit with Pad","executable":"C:\\pad.exe","arguments":["%1"]}],)"
      R"("command_policies":[{"command_id":"windows:properties","hidden":true},)"
      R"({"command_id":"windows:properties","match":{"family":"file-item","extension":".txt"},)"
      R"("title_override":"Details"}],"layout_edits":[{"id":"file-item-default","edits":[)"
      R"({"action":"insert","node":{"type":"command","id":"pad",)"
      R"("command_id":"user:{00000000-0000-0000-0000-0000000000bb}",)"
      R"("commands_plus_ref":"user:{00000000-0000-0000-0000-0000000000bb}"},)"
      R"("anchor_id":"open-with","after":true},)"
      R"({"action":"move","node":{"id":"properties"},"position":"end","parent_id":"open-with"},)"
      R"({"action":"remove","node":{"id":"pin-to-start"}}]}]})");
  EXPECT_EQ(
      Model({L"publish-user", kSchema, scratch + L"\\baseline.json", scratch + L"\\overlay.json"})
          .output,
      "Published custom model version 1: 9 layout(s), 180 node(s).\n");
  EXPECT_PRED2(Has, Model({L"effective", L"file-item"}).output,
               "    - [properties] command windows:properties\n  - [pad] command " + pad);
  // The user's own definition is marked as declared by the overlay.
  const std::string image = ReadBytes(CustomModelSnapshotPath(1));
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view).ok());
  ASSERT_EQ(view.definitionCount(), 1u);
  EXPECT_EQ(view.Definition(0).declaredIn, 1u);
}

TEST(CustomModelE2e, ArgumentErrorsAndStubs) {
  const std::string resetUsage =
      "custom-model reset usage: custom-model reset [<schema> <baseline> [target]]\n";
  const std::pair<std::vector<std::wstring>, std::string> rows[] = {
      {{L"publish", L"schema.json"}, "custom-model publish needs <schema> <baseline>.\n"},
      {{L"publish-user", L"a", L"b"},
       "custom-model publish-user needs <schema> <baseline> <overlay>.\n"},
      {{L"validate-user"}, "custom-model validate-user needs <schema> <baseline> <overlay>.\n"},
      {{L"effective"}, "custom-model effective needs <target>.\n"},
      {{L"effective", L"bogus"},
       "Unknown target 'bogus'. Use desktop, folder-background, folder-item, drive, file-item, "
       "class:<perceived-type>, file:<ext>, or namespace:<guid>[:none|single|multi].\n"},
      {{L"reset"}, "custom-model reset needs <schema> <baseline> [target] in this pass.\n"},
      {{L"reset", L"a"}, resetUsage},
      {{L"prepare-reset", L"a", L"b", L"c", L"d"}, resetUsage},
      {{L"reset", L"a", L"b"}, "ERROR: The schema or baseline file could not be read.\n"},
      {{L"preview"}, "custom-model preview needs <target>.\n"},
      {{L"preview", L"desktop"},
       "Synthetic live preview is not implemented. Use the editor preview or an actual Explorer "
       "context menu.\n"},
      {{L"Publish"},
       "Unknown custom-model action 'Publish'. Use publish, publish-user, validate-user, "
       "effective, reset, or preview.\n"},
  };
  for (const auto& [args, output] : rows) {
    const RunResult run = Model(args);
    EXPECT_EQ(run.output, output) << ToUtf8(args[0]);
    EXPECT_EQ(run.exitCode, 1u) << ToUtf8(args[0]);
  }
}

}  // namespace
}  // namespace cmr::e2e
