// The schema and the baseline ship together; these tests read both from the staged install
// tree, so a change to either file that breaks the other fails here before it ships.

#include <gtest/gtest.h>

#include "tests/support/staged_install.h"

#include <set>
#include <string>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/json_text.h"
#include "model/command_identity.h"
#include "model/layout_inheritance.h"
#include "model/model_document.h"
#include "model/model_names.h"

namespace cmr {
namespace {


rapidjson::Document Load(const wchar_t* relative) {
  rapidjson::Document document;
  const Result<std::string> bytes = ReadWholeFile(StagedFile(relative));
  EXPECT_TRUE(bytes.ok()) << relative;
  JsonParseFailure failure;
  EXPECT_TRUE(ParseJsonText(bytes ? bytes.value() : "", false, document, failure)) << failure.offset;
  return document;
}

const rapidjson::Document& Schema() {
  static const rapidjson::Document schema = Load(L"Schema\\custom-menu.schema.json");
  return schema;
}

rapidjson::Document Baseline() {
  return Load(L"Content\\Menus\\create-organize.baseline.json");
}

void CollectNodes(const std::vector<ModelNode>& items, std::vector<const ModelNode*>& out) {
  for (const ModelNode& node : items) {
    out.push_back(&node);
    CollectNodes(node.items, out);
  }
}

TEST(ShippedModel, BaselineValidatesFlattensAndParses) {
  rapidjson::Document baseline = Baseline();
  ASSERT_EQ(ValidateAgainstSchema(Schema(), baseline, DocumentKind::baseline).message(), L"");
  DocumentHeader header;
  ASSERT_EQ(ReadDocumentHeader(baseline, header).message(), L"");
  EXPECT_EQ(header.kind, DocumentKind::baseline);
  EXPECT_EQ(header.schemaVersion, 2u);
  EXPECT_EQ(MenuStyleOf(header), L"create-organize");
  // The predecessor stamps that overlays are migrated from must never be the current one.
  for (const wchar_t* predecessor :
       {L"", L"win11-shell-2026.08-slice2", L"win11-shell-2026.08-slice3", L"win11-cm-2026.08"}) {
    EXPECT_NE(header.baselineVersion, predecessor);
  }
  // Without "abstract" the shared parents would claim contexts of their own and collide or
  // publish menus no target asked for.
  size_t abstractLayouts = 0, inheriting = 0;
  for (const rapidjson::Value& layout : baseline["layouts"].GetArray()) {
    abstractLayouts += layout.HasMember("abstract") && layout["abstract"].GetBool();
    inheriting += layout.HasMember("inherits");
  }
  EXPECT_GE(abstractLayouts, 1u);
  EXPECT_GE(inheriting, 2u);

  // Which target gets which of the nine layouts is checked end to end.
  ASSERT_EQ(FlattenLayouts(baseline).message(), L"");
  ModelDocument model;
  ASSERT_EQ(ParseModelDocument(baseline, model).message(), L"");
  ASSERT_EQ(model.layouts.size(), 9u);
  std::set<NodeKind> kinds;
  std::set<std::wstring> commands;
  bool personalizeSettings = false;
  for (const Layout& layout : model.layouts) {
    ASSERT_TRUE(layout.match.has_value()) << layout.id;
    EXPECT_EQ(layout.match->selection, SelectionArity::any) << layout.id;
    std::vector<const ModelNode*> nodes;
    CollectNodes(layout.items, nodes);
    for (const ModelNode* node : nodes) {
      kinds.insert(node->kind);
      commands.insert(node->commandId);
      // Overlays of the predecessor release reach these rows only through the id
      // normalisation, so a shipped id must be its own normal form.
      EXPECT_EQ(NormaliseLegacyLayoutId(node->id), node->id) << layout.id;
      // The verbs print a submenu's title_override; a bare id would reach the user.
      EXPECT_TRUE(node->kind != NodeKind::submenu || !node->titleOverride.empty()) << node->id;
      if (layout.id == L"desktop-default" && node->id == L"personalize") {
        for (const ModelNode& child : node->items)
          personalizeSettings |= child.id == L"personalize-settings";
      }
    }
  }
  for (const NodeKind kind :
       {NodeKind::command, NodeKind::submenu, NodeKind::separator, NodeKind::iconBand,
        NodeKind::extensionSlot, NodeKind::classicExtensionSlot, NodeKind::windowsExtensionSlot}) {
    EXPECT_TRUE(kinds.count(kind)) << NodeKindName(kind);
  }
  EXPECT_TRUE(commands.count(std::wstring(kQuickBrowseIdentity)));
  EXPECT_TRUE(commands.count(std::wstring(kQuickPinsIdentity)));
  EXPECT_TRUE(personalizeSettings);
}

// A minimal overlay, to probe the schema's rules.
std::wstring ValidateOverlay(const std::string& text) {
  rapidjson::Document overlay;
  EXPECT_FALSE(overlay.Parse(text.c_str()).HasParseError()) << text;
  return ValidateAgainstSchema(Schema(), overlay, DocumentKind::overlay).message();
}

std::wstring ValidateNode(const std::string& node) {
  return ValidateOverlay(R"({"document_kind":"overlay","schema_version":2,)"
                         R"("insertions":[{"layout_id":"desktop-default","node":)" +
                         node + "}]}");
}

std::string UserCommand(size_t argumentCount) {
  std::string arguments;
  for (size_t i = 0; i < argumentCount; ++i) arguments += i != 0 ? ",\"a\"" : "\"a\"";
  return R"({"type":"command","id":"u","command_id":"user:{00000000-0000-0000-0000-000000000001}",)"
         R"("title":"T","executable":"x.exe","arguments":[)" +
         arguments + "]}";
}

TEST(ShippedSchema, RefusesWhatNoDocumentMayHold) {
  EXPECT_EQ(ValidateNode(UserCommand(32)), L"");
  EXPECT_NE(ValidateNode(UserCommand(33)), L"");

  // Handles and indexes of one process mean nothing to the next one.
  EXPECT_EQ(ValidateNode(R"({"type":"command","id":"o","command_id":"windows:open","hwnd":1})"),
            L"The overlay does not satisfy custom-menu.schema.json: the 'additionalProperties' "
            L"rule at schema location '#/definitions/node' rejects '#/insertions/0/node/hwnd'.");
  EXPECT_NE(ValidateNode(R"({"type":"command","id":"o","command_id":"windows:open",)"
                         R"("command_index":3})"),
            L"");
  EXPECT_NE(ValidateNode(R"({"type":"command","id":"o","_rank":3})"), L"");
  EXPECT_NE(ValidateNode(R"({"type":"popup","id":"o"})"), L"");

  const std::string rule =
      R"({"document_kind":"overlay","extension_rules":[{"id":"r","command_id":")";
  EXPECT_EQ(ValidateOverlay(rule + R"(classic:title:Send to"}]})"), L"");
  EXPECT_NE(ValidateOverlay(rule + R"(classic:title:"}]})"), L"");

  const std::string layout = R"({"document_kind":"overlay","layouts":[{"id":"m","match":)"
                             R"({"family":"file-item","selection":")";
  for (const char* selection : {"any", "single", "multi"}) {
    EXPECT_EQ(ValidateOverlay(layout + selection + R"("},"items":[]}]})"), L"") << selection;
  }
  EXPECT_NE(ValidateOverlay(layout + R"(none"},"items":[]}]})"), L"");
}

TEST(ShippedSchema, AdmitsEveryOverlaySection) {
  EXPECT_EQ(ValidateOverlay(
                R"({"document_kind":"overlay","schema_version":3,)"
                R"("baseline_version":"win11-shell-2026.11","base_id":"create-organize",)"
                R"("layout_edits":[{"id":"desktop-default","edits":[)"
                R"({"action":"insert","node":{"type":"separator","id":"n"},"position":"end"},)"
                R"({"action":"move","node":{"id":"refresh"},"anchor_id":"view","after":true},)"
                R"({"action":"remove","node":{"id":"paste"},"parent_id":"new"}]}],)"
                R"("command_definitions":[{"command_id":)"
                R"("user:{00000000-0000-0000-0000-000000000001}","title":"T",)"
                R"("executable":"x.exe","arguments":["-n"],"icon_path":"x.exe"}],)"
                R"("command_policies":[{"command_id":"windows:open","hidden":true,)"
                R"("match":{"family":"drive"}},{"command_id":"windows:cut",)"
                R"("title_override":"Cut it"}]})"),
            L"");
  EXPECT_EQ(
      ValidateOverlay(R"({"document_kind":"overlay","schema_version":2,)"
                      R"("node_overrides":[{"layout_id":"desktop-default","node_id":"view",)"
                      R"("visibility":"hidden","title_override":"V","icon_path":"i.ico",)"
                      R"("shift_only":true,"parent_id":"new","order":3,)"
                      R"("quick_pins":{"list":"Work","path":"C:\\w"},)"
                      R"("quick_browse":{"path":"C:\\","recursive":true}}],)"
                      R"("command_defaults":[{"command_id":"product:quick-pins",)"
                      R"("quick_pins":{"list":"Pins"}}],)"
                      R"("insertions":[{"layout_id":"desktop-default","parent_id":"new",)"
                      R"("order":1,"node":{"type":"command","id":"q",)"
                      R"("command_id":"product:quick-browse","quick_browse":{"path":"C:\\"}}}],)"
                      R"("extension_rules":[{"id":"r","provider_id":)"
                      R"("com:{11111111-1111-1111-1111-111111111111}","shift_only":true,)"
                      R"("match":{"family":["drive"],"extension":".x"},"action":{"kind":"move",)"
                      R"("target_submenu_id":"new","title_override":"X","order":2}}]})"),
      L"");
}

}  // namespace
}  // namespace cmr
