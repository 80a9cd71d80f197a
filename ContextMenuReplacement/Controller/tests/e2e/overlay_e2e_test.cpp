// The user's overlay through the real controller: publish-user, validate-user, the resets and
// prepare-reset, as the Settings application drives them.

#include <gtest/gtest.h>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/user_icons.h"
#include "tests/e2e/harness.h"

namespace cmr::e2e {
namespace {

std::wstring SchemaPath() {
  return InstallFolder() + L"\\Schema\\custom-menu.schema.json";
}
std::wstring BaselinePath() {
  return InstallFolder() + L"\\Content\\Menus\\create-organize.baseline.json";
}

constexpr const char* kHeader =
    R"({"document_kind":"overlay","schema_version":2,"baseline_version":"win11-shell-2026.11",)";

// Reparent + insertion + hides: "new" (with its slot) on the desktop, a one-row submenu the
// overlay inserted into the drive menu, and "sort" on the abstract parent of both background
// layouts; the Quick pins shared setting; a title on the parent's "view".
const std::string kOverlay =
    std::string(kHeader) +
    R"("insertions":[{"layout_id":"folder-background-default","parent_id":"view","node":)"
    R"({"type":"command","id":"my-tool","command_id":"user:{00000000-0000-0000-0000-0000000000aa}",)"
    R"("title":"My tool","executable":"C:\\tools\\tool.exe","arguments":["--here"],"order":99,)"
    R"("icon_path":"C:\\windows\\notepad.exe"}},)"
    R"({"layout_id":"drive-default","node":{"type":"submenu","id":"more","items":[)"
    R"({"type":"command","id":"more-open","command_id":"windows:open-more"}]}},)"
    R"({"layout_id":"drive-default","node":{"type":"command","id":"own-pins",)"
    R"("command_id":"product:quick-pins","quick_pins":{"list":"Mine","path":"C:\\mine"}}}],)"
    R"("node_overrides":[{"layout_id":"folder-background-default","node_id":"paste-shortcut",)"
    R"("parent_id":"new"},{"layout_id":"desktop-default","node_id":"new","visibility":"hidden"},)"
    R"({"layout_id":"drive-default","node_id":"more","visibility":"hidden"},)"
    R"({"layout_id":"background-base","node_id":"sort","visibility":"hidden"},)"
    R"({"layout_id":"desktop-default","node_id":"sort","title_override":"Order"}],)"
    R"("command_defaults":[{"command_id":"product:quick-pins","quick_pins":{"list":"Work"}}]})";

RunResult Verb(const wchar_t* action, const std::wstring& overlay, bool json = false) {
  std::vector<std::wstring> args = {L"custom-model", action, SchemaPath(), BaselinePath()};
  if (!overlay.empty()) args.push_back(overlay);
  if (json) args.push_back(L"--json");
  return RunController(args);
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(OverlayE2e, ValidatePublishAndMigrate) {
  ResetUserData();
  const std::wstring scratch = ScratchFolder(L"overlay-publish");
  const std::wstring overlay = scratch + L"\\overlay.json";
  WriteBytes(overlay, kOverlay);

  // The shipped baseline alone has 177 rows. The overlay adds my-tool (+1); hides "new" on
  // the desktop (-5) but keeps its slot in a withheld group (+2); inserts "more" with its row
  // and hides it again (+2 -2), and adds own-pins (+1); hides "sort" on both background
  // layouts' parent, which reaches the desktop's inherited copy (-5) but not the folder
  // background's own "sort" (it redefined the row).
  RunResult run = Verb(L"validate-user", overlay);
  EXPECT_EQ(run.output, "Valid. 9 layout(s), 171 node(s). Nothing was published.\n");
  EXPECT_EQ(run.exitCode, 0u);
  EXPECT_FALSE(FileExists(PublishedFolder() + L"\\custom-model-control.bin"));
  EXPECT_FALSE(DirectoryExists(ProductFolder() + L"\\user-icons"));
  run = Verb(L"validate-user", overlay, true);
  EXPECT_EQ(
      run.output,
      "{\"published\":false,\"version\":0,\"layoutCount\":9,\"nodeCount\":171,\"errors\":[]}\n");

  run = Verb(L"publish-user", overlay);
  EXPECT_EQ(run.output, "Published custom model version 1: 9 layout(s), 171 node(s).\n");
  // The icon was extracted once into the cache, and the published rows name the cached file.
  const std::wstring icon = UserIconCachePath(L"C:\\windows\\notepad.exe");
  EXPECT_EQ(ReadBytes(icon).substr(0, 4), std::string("\0\0\1\0", 4));  // an icon file
  const std::string image = ReadBytes(CustomModelSnapshotPath(1));
  const std::string wide(reinterpret_cast<const char*>(icon.data()), 2 * icon.size());
  EXPECT_TRUE(Contains(image, wide));
  run = RunController({L"custom-model", L"effective", L"desktop"});
  EXPECT_TRUE(Contains(run.output,
                       "  - [withheld-slots-new] (withheld - slots kept from a hidden "
                       "subtree)\n    - [new-item-types] (windows extension slot)\n"))
      << run.output;
  EXPECT_FALSE(Contains(run.output, "[sort]"));
  run = RunController({L"custom-model", L"effective", L"folder-background"});
  EXPECT_TRUE(Contains(run.output,
                       "    - [paste-shortcut] command windows:paste-shortcut\n"
                       "  - (separator)\n"))
      << run.output;
  EXPECT_TRUE(
      Contains(run.output,
               "    - [my-tool] command user:{00000000-0000-0000-0000-0000000000aa}\n  - [sort]"));
  // The shared pin list reaches the shipped row; the inserted row with its own path keeps it.
  run = RunController({L"custom-model", L"effective", L"drive", L"--json"});
  EXPECT_FALSE(Contains(run.output, "\"more-open\""));

  // Refusals name what is wrong and publish nothing.
  const std::pair<std::string, const char*> refused[] = {
      {std::string(kHeader) +
           R"("node_overrides":[{"layout_id":"drive-default","node_id":"nope"}]})",
       "  error:   node_override references unknown node 'nope' in layout 'drive-default'.\n"},
      {std::string(kHeader) + R"("command_defaults":[{"command_id":"windows:open"}]})",
       "  error:   command_defaults names 'windows:open', which has no shared settings.\n"},
      {R"({"document_kind":"overlay","schema_version":2,"baseline_version":"other"})",
       "  error:   The overlay was authored against baseline version 'other' but the current "
       "baseline is 'win11-shell-2026.11'.\n"},
      {R"({"document_kind":"overlay","schema_version":2,"base_id":"compact",)"
       R"("baseline_version":"win11-shell-2026.08-slice2"})",
       "  error:   These customizations were made for the 'compact' menu style, but the "
       "'create-organize' style is in use.\n"},
      {R"({"document_kind":"overlay","schema_version":3,"baseline_version":"win11-shell-2026.11"})",
       "  error:   Baseline and overlay schema versions must match; no automatic conversion is "
       "supported.\n"},
  };
  for (const auto& [text, message] : refused) {
    WriteBytes(scratch + L"\\refused.json", text);
    run = Verb(L"publish-user", scratch + L"\\refused.json");
    EXPECT_EQ(run.output, std::string(message) +
                              "Nothing was published. The previously published custom model is "
                              "still in effect.\n");
    EXPECT_EQ(run.exitCode, 1u);
  }

  // An overlay saved by the predecessor release: its prefixed ids are migrated and the
  // re-stamped overlay is saved back before the publication; validation saves nothing.
  const std::string legacy =
      R"({"document_kind":"overlay","schema_version":2,"baseline_version":)"
      R"("win11-shell-2026.08-slice2","node_overrides":[{"layout_id":)"
      R"("folder-background-default","node_id":"fb-group","visibility":"hidden"}]})";
  WriteBytes(overlay, legacy);
  EXPECT_EQ(Verb(L"validate-user", overlay).exitCode, 0u);
  EXPECT_EQ(ReadBytes(overlay), legacy);
  run = Verb(L"publish-user", overlay);
  EXPECT_EQ(run.output, "Published custom model version 2: 9 layout(s), 169 node(s).\n");
  const std::string saved = ReadBytes(overlay);
  EXPECT_TRUE(Contains(saved, "\"baseline_version\": \"win11-shell-2026.11\"")) << saved;
  EXPECT_TRUE(Contains(saved, "\"node_id\": \"group\"")) << saved;
}

TEST(OverlayE2e, ResetsWholeAndByTarget) {
  ResetUserData();
  const std::wstring overlay = OverlayPath(L"");
  RunResult run = Verb(L"reset", L"", false);
  EXPECT_EQ(run.output,
            "No overlay existed; the overlay and republished the baseline: version 1, 9 "
            "layout(s), 177 node(s).\n");
  run = RunController({L"custom-model", L"reset", SchemaPath(), BaselinePath(), L"desktop"});
  EXPECT_EQ(run.output, "No customizations exist for target 'desktop'.\n");

  const std::string text =
      std::string(kHeader) +
      R"("node_overrides":[{"layout_id":"desktop-default","node_id":"refresh","visibility":)"
      R"("hidden"},{"layout_id":"drive-default","node_id":"eject","visibility":"hidden"}],)"
      R"("extension_rules":[{"id":"r","command_id":"classic:verb:x","match":{"family":)"
      R"(["drive"]},"action":{"kind":"hide"}}]})";
  WriteBytes(overlay, text);
  const auto scoped = [&](const wchar_t* action, const wchar_t* target) {
    return RunController({L"custom-model", action, SchemaPath(), BaselinePath(), target});
  };
  run = scoped(L"prepare-reset", L"drive");
  EXPECT_EQ(run.output,
            "{\"overlay\":" + std::string(kHeader) +
                R"("node_overrides":[{"layout_id":"desktop-default","node_id":"refresh",)"
                R"("visibility":"hidden"}],"extension_rules":[]}})" +
                "\n");
  EXPECT_EQ(scoped(L"prepare-reset", L"taskbar-clock").output, "{\"unchanged\":true}\n");
  EXPECT_EQ(scoped(L"reset", L"taskbar-clock").output,
            "No customizations reference target 'taskbar-clock'; nothing to reset.\n");
  EXPECT_EQ(ReadBytes(overlay), text);

  run = scoped(L"reset", L"drive");
  EXPECT_EQ(run.output,
            "Reset target 'drive' and republished: version 2, 9 layout(s), 176 node(s).\n");
  EXPECT_FALSE(Contains(ReadBytes(overlay), "eject"));
  EXPECT_TRUE(Contains(ReadBytes(overlay), "refresh"));

  run = Verb(L"reset", L"", false);
  EXPECT_EQ(run.output,
            "Removed the overlay and republished the baseline: version 3, 9 layout(s), 177 "
            "node(s).\n");
  EXPECT_FALSE(FileExists(overlay));

  WriteBytes(overlay, "{not json");
  run = scoped(L"reset", L"drive");
  EXPECT_EQ(run.output,
            "The overlay file is not valid JSON; cannot perform a target-scoped reset.\n");
  EXPECT_EQ(run.exitCode, 1u);
  // A full reset refuses an invalid baseline before it touches the overlay.
  run = RunController({L"custom-model", L"reset", SchemaPath(), SchemaPath()});
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(ReadBytes(overlay), "{not json");
}

TEST(OverlayE2e, PlacementOverlayWithEditsPoliciesAndDefinitions) {
  ResetUserData();
  const std::wstring scratch = ScratchFolder(L"overlay-placement");
  std::string baseline = ReadBytes(BaselinePath());
  baseline.replace(baseline.find("\"schema_version\": 2"), 19, "\"schema_version\": 3");
  WriteBytes(scratch + L"\\baseline.json", baseline);
  const std::string overlay =
      R"({"document_kind":"overlay","schema_version":3,"baseline_version":"win11-shell-2026.11",)"
      R"("command_definitions":[{"command_id":"user:{00000000-0000-0000-0000-0000000000bb}",)"
      R"("title":"Edit with Pad","executable":"C:\\pad.exe","arguments":["%1"]}],)"
      R"("command_policies":[{"command_id":"windows:properties","hidden":true},)"
      R"({"command_id":"windows:properties","match":{"family":"file-item","extension":".txt"},)"
      R"("title_override":"Details"}],)"
      R"("layout_edits":[{"id":"file-item-default","edits":[)"
      R"({"action":"insert","node":{"type":"command","id":"pad","command_id":)"
      R"("user:{00000000-0000-0000-0000-0000000000bb}","commands_plus_ref":)"
      R"("user:{00000000-0000-0000-0000-0000000000bb}"},"anchor_id":"open-with","after":true},)"
      R"({"action":"move","node":{"id":"properties"},"position":"end","parent_id":"open-with"},)"
      R"({"action":"remove","node":{"id":"pin-to-start"}}]}]})";
  WriteBytes(scratch + L"\\overlay.json", overlay);
  RunResult run = RunController({L"custom-model", L"publish-user", SchemaPath(),
                                 scratch + L"\\baseline.json", scratch + L"\\overlay.json"});
  EXPECT_EQ(run.output, "Published custom model version 1: 9 layout(s), 180 node(s).\n");
  run = RunController({L"custom-model", L"effective", L"file-item"});
  EXPECT_TRUE(Contains(run.output,
                       "Layout 'file-item-default' for target 'file-item':\n"
                       "  - [clipboard]"))
      << run.output;
  EXPECT_TRUE(Contains(run.output,
                       "    - [properties] command windows:properties\n"
                       "  - [pad] command user:{00000000-0000-0000-0000-0000000000bb}\n"))
      << run.output;
  EXPECT_FALSE(Contains(run.output, "pin-to-start"));
  // The user's own definition is marked as declared by the overlay.
  const std::string image = ReadBytes(CustomModelSnapshotPath(1));
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view).ok());
  ASSERT_EQ(view.definitionCount(), 1u);
  EXPECT_EQ(view.Text(view.Definition(0).identity), L"user:{00000000-0000-0000-0000-0000000000bb}");
  EXPECT_EQ(view.Definition(0).declaredIn, 1u);

  const std::string invalid =
      R"({"document_kind":"overlay","schema_version":3,"baseline_version":"win11-shell-2026.11",)"
      R"("layout_edits":[{"id":"drive-default","edits":[{"action":"move","node":{"id":"eject"},)"
      R"("anchor_id":"nowhere"}]}]})";
  WriteBytes(scratch + L"\\overlay.json", invalid);
  run = RunController({L"custom-model", L"validate-user", SchemaPath(),
                       scratch + L"\\baseline.json", scratch + L"\\overlay.json"});
  EXPECT_EQ(run.output,
            "  error:   Invalid placement edit in layout 'drive-default': missing or conflicting "
            "placement, parent, or sibling anchor.\nNot valid; nothing was published.\n");
}

}  // namespace
}  // namespace cmr::e2e
