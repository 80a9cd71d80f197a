// custom-model as the Settings application and an operator use it: the shipped baseline read back
// per target, the overlay validated, published, migrated and reset, refusals changing nothing.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstring>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "snapshot/custom_model_publisher.h"
#include "snapshot/user_icons.h"
#include "tests/e2e/command_rows.h"
#include "tests/e2e/harness.h"
#include "tests/support/golden_file.h"
#include "tests/support/todays_log.h"

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
  ASSERT_EQ(Model({L"publish", kSchema, kBaseline}).exitCode, 0u);
  // Only the version word tells two publications of one model apart.
  const std::string second = ReadBytes(CustomModelSnapshotPath(2));
  std::string first = ReadBytes(CustomModelSnapshotPath(1));
  first[8] = 2;
  EXPECT_EQ(first, second);

  // Both renderings whole, for a family and for an extension in another case.
  EXPECT_EQ(Model({L"effective", L"desktop", L"--json"}).output, Golden(L"desktop.effective.json"));
  EXPECT_EQ(Model({L"effective", L"file:.JPG"}).output, Golden(L"jpg.effective.txt"));
  // The shipped model has no namespace layouts.
  const std::wstring computer = L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}";
  EXPECT_EQ(Model({L"effective", computer}).output,
            "No layout matches target '" + ToUtf8(computer) + "'.\n");
  EXPECT_EQ(Model({L"effective", computer + L":none", L"--json"}).output,
            "{\"target\":\"" + ToUtf8(computer) + ":none\",\"matched\":false}\n");

  const std::string control = ReadBytes(CustomModelControlPath());
  const std::wstring scratch = ScratchFolder(L"custom-model-refused");
  const std::string broken = "{\"document_kind\": \"baseline\",";
  // 10,000 links once ended the process with no word; the baseline-alone refusals say only their
  // sentence, and what the validator or the parser found goes to the log after the file's name.
  std::string chain = R"({"$ref":"#/definitions/d0","definitions":{)";
  for (int i = 0; i < 9'999; ++i)
    chain += fmt::format(R"("d{}":{{"$ref":"#/definitions/d{}"}},)", i, i + 1);
  chain += R"("d9999":{}}})";
  struct Row {
    std::wstring verb;
    int slot;  // the file the document stands in for: 1 schema, 2 baseline, 3 overlay
    std::string document, error, logged;
  };
  // Written-out rows are kept as data (verb, slot, document, error, logged). One of them: each
  // level doubles what the next applies, and the last applies the first to every member and
  // element, eight validators more per value at each level of the baseline.
  std::vector<Row> rows = {
      {L"publish", 1, chain,
       "The schema's chain of '$ref' references from '#' exceeds 32 links at '#/definitions/d31'.",
       ""},
      {L"publish", 2, OversizedBaseline(), "The custom model snapshot exceeded its size limit.",
       ""},
  };
  for (const auto& r : GoldenRows(L"custom_model_refusals.tsv"))
    rows.push_back({FromUtf8(r[0]), std::stoi(r[1]), r[2], r[3], r[4]});
  ASSERT_EQ(rows.size(), 10u);
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
    if (!row.logged.empty()) {
      EXPECT_PRED2(Has, TodaysLog(), row.logged);
    }
  }
  // The same as JSON; and a file that cannot be read is a fatal refusal.
  const std::string refused =
      "{\"published\":false,\"version\":0,\"layoutCount\":0,\"nodeCount\":0,\"errors\":[";
  WriteBytes(scratch + L"\\broken.json", broken);
  EXPECT_EQ(Model({L"publish", kSchema, scratch + L"\\broken.json", L"--json"}).output,
            refused + "\"The schema or baseline is not valid JSON.\"]}\n");
  const std::wstring missing = scratch + L"\\missing.json";
  EXPECT_EQ(Model({L"publish-user", kSchema, kBaseline, missing, L"--json"}).output,
            refused + "\"The schema, baseline or overlay file could not be read.\"]}\n");
  run = Model({L"publish", kSchema, missing});
  EXPECT_EQ(run.output, "ERROR: The schema or baseline file could not be read.\n" + kStillInEffect);
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(ReadBytes(CustomModelControlPath()), control);
  EXPECT_FALSE(FileExists(CustomModelSnapshotPath(3)));

  // Control records naming a refused snapshot, a missing one, none, and one without a successor.
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
  WriteBytes(CustomModelControlPath(), CustomModelControlRecord(0x7FFFFFFF));
  run = Model({L"publish", kSchema, kBaseline});
  EXPECT_PRED2(Has, run.output, ToUtf8(CustomModelControlPath()) + "' announces version 2");
  EXPECT_EQ(run.exitCode, 1u);
  EXPECT_EQ(ReadBytes(CustomModelControlPath()), CustomModelControlRecord(0x7FFFFFFF));
  EXPECT_FALSE(FileExists(CustomModelSnapshotPath(0x80000000u)));
  EXPECT_EQ(Model({L"reset", kSchema, kBaseline}).output,
            run.output.substr(0, run.output.find('\n') + 1));
  ASSERT_TRUE(::DeleteFileW(CustomModelControlPath().c_str()));  // later publications start at 1
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
  // A rule without a match serves every context, so no target's reset takes it.
  const std::string global = R"({"id":"g","command_id":"classic:verb:y","action":{"kind":"hide"}})";
  const std::string text =
      kHeader + hides +
      R"(,{"layout_id":"drive-default","node_id":"eject","visibility":"hidden"}],)"
      R"("extension_rules":[{"id":"r","command_id":"classic:verb:x","match":{"family":)"
      R"(["drive"]},"action":{"kind":"hide"}},)" +
      global + "]}";
  WriteBytes(overlay, text);
  reset(L"prepare-reset", {L"drive"},
        "{\"overlay\":" + kHeader + hides + "],\"extension_rules\":[" + global + "]}}\n");
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
  EXPECT_PRED2(
      Has, TodaysLog(),
      ToUtf8(overlay) + "' is not valid JSON at offset 1: Missing a name for object member.");
  // A full reset refuses an invalid baseline before it touches the overlay, in the sentence of
  // the baseline alone.
  const RunResult refused = Model({L"reset", kSchema, kSchema});
  EXPECT_EQ(refused.output, "  error:   The baseline does not satisfy custom-menu.schema.json.\n");
  EXPECT_EQ(refused.exitCode, 1u);
  EXPECT_EQ(ReadBytes(overlay), "{not json");

  // A baseline's own user command names its cached icon in the same way.
  const std::wstring baseline = ScratchFolder(L"baseline-icon") + L"\\baseline.json";
  WriteBytes(baseline,
             R"({"document_kind":"baseline","schema_version":2,"layouts":[{"id":"d","match":)"
             R"({"family":"desktop-background"},"items":[{"type":"command","id":"t","command_id":)"
             R"("user:{00000000-0000-0000-0000-0000000000aa}","title":"T","executable":)"
             R"("C:\\t.exe","icon_path":"C:\\windows\\notepad.exe"}]}]})");
  EXPECT_EQ(Model({L"publish", kSchema, baseline}).output,
            "Published custom model version 6: 1 layout(s), 1 node(s).\n");
  EXPECT_PRED2(Has, ReadBytes(CustomModelSnapshotPath(6)),
               std::string(reinterpret_cast<const char*>(icon.data()), 2 * icon.size()));
}

// The definition table and string list of a published image as the reader hands them out (the
// effective tree reads the layouts and nodes back).
std::string ReadBack(const CustomModelView& view) {
  const auto t = [&](StringRef ref) { return ToUtf8(view.Text(ref)); };
  std::string rows;
  for (uint32_t i = 0; i < view.definitionCount(); ++i) {
    const DefinitionRow r = view.Definition(i);
    rows += fmt::format("definition {}|{}|{}|{} {}|{}|{}|{}|{}|{}|{} {}|{}\n", t(r.identity),
                        r.placed, t(r.title), r.hasIconIndex, r.iconIndex, t(r.executable),
                        t(r.nodeId), t(r.cachedIcon), r.iconSource, t(r.iconPath), r.argumentFirst,
                        r.argumentCount, r.declaredIn);
  }
  for (uint32_t i = 0; i < view.stringListCount(); ++i) rows += ToUtf8(view.ListString(i)) + "\n";
  return rows;
}

// A small model whose image words take values of their own (policies of each scope, definitions
// from each origin, every node kind), pinned byte for byte, read back, its verbs' JSON whole.
TEST(CustomModelE2e, PlacementModelPublishedWholeAndReadBack) {
  ResetUserData();
  const std::wstring scratch = ScratchFolder(L"overlay-placement");
  const std::wstring baseline = scratch + L"\\baseline.json", overlay = scratch + L"\\overlay.json";
  WriteBytes(baseline, Golden(L"model-baseline.json"));
  WriteBytes(overlay, Golden(L"model-overlay.json"));
  const std::string alone = "\"layoutCount\":3,\"nodeCount\":18,\"errors\":[]}\n";
  const std::string merged = "\"layoutCount\":3,\"nodeCount\":23,\"errors\":[]}\n";
  RunRows({
      {{L"custom-model", L"validate", kSchema, baseline, L"--json"},
       "{\"published\":false,\"version\":0," + alone,
       0},
      {{L"custom-model", L"validate-user", kSchema, baseline, overlay, L"--json"},
       "{\"published\":false,\"version\":0," + merged,
       0},
      {{L"custom-model", L"publish", kSchema, baseline, L"--json"},
       "{\"published\":true,\"version\":1," + alone,
       0},
      {{L"custom-model", L"publish-user", kSchema, baseline, overlay, L"--json"},
       "{\"published\":true,\"version\":2," + merged,
       0},
      {{L"custom-model", L"effective", L"namespace:{20d04fe0-3aea-1069-a2d8-08002b30309d}:single",
        L"--json"},
       Golden(L"model-effective.json"),
       0},
  });
  const std::string image = ReadBytes(CustomModelSnapshotPath(2));
  EXPECT_EQ(image, Golden(L"model.snapshot.bin"));
  CustomModelView view;
  ASSERT_TRUE(AttachCustomModel(image.data(), image.size(), view).ok());
  EXPECT_EQ(ReadBack(view), Golden(L"model.rows.txt"));
  EXPECT_PRED2(Has, TodaysLog(),
               "[custom-model] Published custom model version 2 (" + std::to_string(image.size()) +
                   " bytes): 3 layout(s), 23 node(s).\n");
}

TEST(CustomModelE2e, ArgumentErrorsAndStubs) {
  const std::string golden = Golden(L"custom_model_arguments.txt");
  EXPECT_EQ(RunTranscript(golden), golden);
}

}  // namespace
}  // namespace cmr::e2e
