#include "model/model_document.h"

#include <gtest/gtest.h>

#include <string>

namespace cmr {
namespace {

rapidjson::Document Json(const std::string& text) {
  rapidjson::Document document;
  EXPECT_FALSE(document.Parse(text.c_str()).HasParseError()) << text;
  return document;
}

// A baseline with one concrete file-item layout holding `items` (a JSON array text).
std::string WithItems(const std::string& items) {
  return R"({"document_kind":"baseline","schema_version":2,"layouts":[{"id":"l","match":)"
         R"({"family":"file-item"},"items":)" +
         items + "}]}";
}

std::wstring Parse(const std::string& text) {
  ModelDocument model;
  return ParseModelDocument(Json(text), model).message();
}

std::string Separators(size_t count, const std::string& prefix) {
  std::string items = "[";
  for (size_t i = 0; i < count; ++i) {
    if (i != 0) items += ',';
    items += R"({"type":"separator","id":")" + prefix + std::to_string(i) + "\"}";
  }
  return items + "]";
}

// Root items holding a chain of submenus `levels` deep, one command at the bottom.
std::string Nested(size_t levels) {
  std::string items = R"([{"type":"command","id":"leaf","command_id":"windows:open"}])";
  for (size_t level = 0; level < levels; ++level) {
    items =
        R"([{"type":"submenu","id":"s)" + std::to_string(level) + R"(","items":)" + items + "}]";
  }
  return items;
}

TEST(ModelDocumentHeader, AppliesTheVersionAndKindRules) {
  DocumentHeader header;
  ASSERT_EQ(ReadDocumentHeader(Json(R"({"document_kind":"overlay"})"), header).message(), L"");
  EXPECT_EQ(header.schemaVersion, 1u);
  EXPECT_FALSE(header.versionDeclared);
  EXPECT_EQ(header.kind, DocumentKind::overlay);
  EXPECT_EQ(RequireBaselineDocument(header).message(),
            L"The custom model publisher accepts a baseline document only.");
  const std::string baseline = R"({"document_kind":"baseline","schema_version":)";
  for (const int version : {1, 2, 3}) {
    ASSERT_EQ(ReadDocumentHeader(Json(baseline + std::to_string(version) + "}"), header).message(), L"");
    EXPECT_EQ(header.schemaVersion, static_cast<uint32_t>(version));
    EXPECT_TRUE(header.versionDeclared);
  }
  DocumentHeader overlay;
  overlay.kind = DocumentKind::overlay;
  EXPECT_EQ(RequireBaselineDocument(header).message(), L"");
  EXPECT_EQ(RequireMatchingSchemaVersions(header, overlay).message(),
            L"Baseline and overlay schema versions must match; no automatic conversion is "
            L"supported.");
  EXPECT_EQ(MenuStyleOf(header), L"create-organize");
  overlay.baseId = L"compact";
  EXPECT_EQ(MenuStyleOf(overlay), L"compact");

  DocumentHeader untouched;
  untouched.baseId = L"kept";
  EXPECT_EQ(ReadDocumentHeader(Json(baseline + "4}"), untouched).message(),
            L"The document's 'schema_version' 4 is newer than this program supports (at most 3).");
  EXPECT_EQ(untouched.baseId, L"kept");
  for (const char* invalid : {"2.5", "\"2\"", "null"}) {
    EXPECT_EQ(ReadDocumentHeader(Json(baseline + invalid + "}"), header).message(),
              L"The document's 'schema_version' is not a whole number.")
        << invalid;
  }
  EXPECT_NE(ReadDocumentHeader(Json(baseline + "0}"), header).message(), L"");
  EXPECT_NE(ReadDocumentHeader(Json(R"({"schema_version":2})"), header).message(), L"");
}

TEST(ModelDocumentLimits, ItemsPerArrayDepthAndNodesPerLayout) {
  EXPECT_EQ(Parse(WithItems(Separators(512, "s"))), L"");
  EXPECT_EQ(Parse(WithItems(Separators(513, "s"))), L"A layout exceeds the node limits.");
  EXPECT_EQ(Parse(WithItems(Nested(8))), L"");
  EXPECT_EQ(Parse(WithItems(Nested(9))), L"Layout 'l' nests its items more than 8 levels deep.");

  // 16 submenus of 511 rows each make exactly 8192 nodes; one more row is over.
  std::string full = "[";
  for (int i = 0; i < 16; ++i) {
    if (i != 0) full += ',';
    const std::string id = std::string("m").append(std::to_string(i));
    full.append(R"({"type":"submenu","id":")").append(id).append(R"(","items":)");
    full.append(Separators(511, id + "-")).append("}");
  }
  EXPECT_EQ(Parse(WithItems(full + "]")), L"");
  EXPECT_EQ(Parse(WithItems(full + R"(,{"type":"separator","id":"over"}])")),
            L"A layout exceeds the node limits.");
}

TEST(ModelDocumentNodes, RefusesGrammarViolationsWithTheNodeNamed) {
  const std::pair<std::string, const wchar_t*> cases[] = {
      {R"([{"type":"command","id":"u","command_id":"user:{00000000-0000-0000-0000-000000000001}",)"
       R"("title":"Edit"}])",
       L"Node 'u' is a user command and needs both 'title' and 'executable'."},
      {R"([{"type":"command","id":"w","command_id":"windows:open","title":"Open"}])",
       L"Node 'w' is not a user command and must not declare 'title', 'executable' or "
       L"'arguments'."},
      {R"([{"type":"submenu","id":"v","title":"View","items":[]}])",
       L"Node 'v' is not a user command and must not declare 'title', 'executable' or "
       L"'arguments'."},
      {R"([{"type":"command","id":"b","command_id":"product:quick-pins","quick_browse":{}}])",
       L"Node 'b' declares 'quick_browse' but is not a Quick browse command."},
      {R"([{"type":"command","id":"p","command_id":"product:quick-browse","quick_pins":{}}])",
       L"Node 'p' declares 'quick_pins' but is not a Quick pins command."},
      {R"([{"type":"command","id":"p","command_id":"product:quick-pins","quick_pins":{"list":""}}])",
       L"Node 'p' names a pin list that is empty, too long, or holds a control character."},
      {R"([{"type":"command","id":"p","command_id":"product:quick-pins",)"
       R"("quick_pins":{"list":"a\tb"}}])",
       L"Node 'p' names a pin list that is empty, too long, or holds a control character."},
      {R"([{"type":"command","id":"p","command_id":"product:quick-pins","quick_pins":{"list":")" +
           std::string(65, 'x') + R"("}}])",
       L"Node 'p' names a pin list that is empty, too long, or holds a control character."},
      {R"([{"type":"icon_band","id":"i","items":[]}])",
       L"Node 'i' is an icon_band and needs at least one item."},
      {R"([{"type":"icon_band","id":"i","items":[{"type":"separator","id":"s"}]}])",
       L"Node 'i' is an icon_band and can only contain 'command' items."},
      {R"([{"type":"command","id":"e","command_id":"ephemeral:provider-row-3"}])",
       L"Node 'e' has a non-persistable command identity."},
      {R"([{"type":"command-reference","id":"c",)"
       R"("command_id":"com:{11111111-1111-1111-1111-111111111111}"}])",
       L"Node 'c' has a non-persistable command identity."},
      {R"([{"type":"submenu","id":"a","items":[{"type":"separator","id":"a"}]}])",
       L"Duplicate node id 'a' in one layout."},
      {R"([{"type":"remaining-commands","id":"r1"},{"type":"submenu","id":"s","items":[)"
       R"({"type":"remaining-commands","id":"r2"}]}])",
       L"A placement layout can contain only one remaining-commands node."},
  };
  for (const auto& [items, message] : cases) {
    EXPECT_EQ(Parse(WithItems(items)), message) << items;
  }
}

TEST(ModelDocumentNodes, ReadsSettingsAndInternalKeys) {
  ModelDocument model;
  ASSERT_EQ(
      ParseModelDocument(
          Json(WithItems(
              R"([{"type":"command","id":"p","command_id":"product:quick-pins","_rank":4,)"
              R"("quick_pins":{"list":")" +
              std::string(64, 'x') +
              R"("},"_from":"base","_from_overlay":true},)"
              R"({"type":"command","id":"q","command_id":"product:quick-pins","quick_pins":{}},)"
              R"({"type":"command","id":"u","command_id":"user:{00000000-0000-0000-0000-000000000001}",)"
              R"("title":"Edit","executable":"n.exe","arguments":["-a","b c"],"order":2.5}])")),
          model).message(),
      L"");
  const std::vector<ModelNode>& items = model.layouts.at(0).items;
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].quickPins->list.size(), 64u);
  EXPECT_EQ(items[0].rank, 4u);
  EXPECT_EQ(items[0].from, L"base");
  EXPECT_TRUE(items[0].fromOverlay);
  EXPECT_EQ(items[1].quickPins->list, L"Pins");
  EXPECT_EQ(items[2].arguments, (std::vector<std::wstring>{L"-a", L"b c"}));
  EXPECT_EQ(items[2].order, 2.5);
}

TEST(ModelDocumentLayouts, DuplicatesAndEqualSpecificity) {
  const auto layout = [](const std::string& id, const std::string& match, const char* extra = "") {
    return R"({"id":")" + id + R"(",)" + extra + R"("match":{"family":"file-item",)" + match +
           R"(},"items":[{"type":"separator","id":"s"}]})";
  };
  const auto doc = [](const std::string& first, const std::string& second) {
    return R"({"document_kind":"baseline","layouts":[)" + first + "," + second + "]}";
  };
  const std::string a = layout("a", R"("extension":".TXT")");
  EXPECT_EQ(Parse(doc(a, layout("b", R"("extension":".txt")"))),
            L"Layout 'b' has an equal-specificity duplicate match.");
  // An abstract layout claims no context, so its match collides with nothing.
  EXPECT_EQ(Parse(doc(a, layout("b", R"("extension":".txt")", R"("abstract":true,)"))), L"");
  EXPECT_EQ(Parse(doc(layout("a", R"("extension":".txt","selection":"single")"),
                      layout("b", R"("extension":".txt","selection":"multi")"))),
            L"");
  EXPECT_EQ(Parse(doc(a, a)), L"Duplicate layout id 'a'.");
}

TEST(ModelDocumentRules, ExpandsFamiliesAndChecksDuplicatesAndCounts) {
  ModelDocument model;
  ASSERT_EQ(ParseModelDocument(
                Json(R"({"document_kind":"baseline","extension_rules":[)"
                     R"({"id":"r","command_id":"classic:verb:x","_from_overlay":true,)"
                     R"("match":{"family":["folder-item","drive"]},"action":{"kind":"move",)"
                     R"("target_submenu_id":"more","order":3}},)"
                     R"({"id":"one","provider_id":"com:{11111111-1111-1111-1111-111111111111}",)"
                     R"("match":{"family":["taskbar-app"]},"action":{"kind":"rename"}}]})"),
                model).message(),
            L"");
  ASSERT_EQ(model.extensionRules.size(), 3u);
  EXPECT_EQ(model.extensionRules[0].id, L"r.folder-item");
  EXPECT_EQ(model.extensionRules[1].id, L"r.drive");
  EXPECT_EQ(model.extensionRules[1].family, ContextFamily::drive);
  EXPECT_EQ(model.extensionRules[1].action, ExtensionActionKind::move);
  EXPECT_EQ(model.extensionRules[1].targetKey, L"command:classic:verb:x");
  EXPECT_TRUE(model.extensionRules[1].fromOverlay);
  EXPECT_EQ(model.extensionRules[2].id, L"one");
  EXPECT_EQ(model.extensionRules[2].family, ContextFamily::taskbarApp);
  EXPECT_EQ(model.extensionRules[2].action, ExtensionActionKind::none);

  EXPECT_EQ(Parse(R"({"document_kind":"baseline","extension_rules":[)"
                  R"({"id":"r","command_id":"a","match":{"family":["folder-item","drive"]}},)"
                  R"({"id":"r.drive","command_id":"b"}]})"),
            L"Duplicate extension rule id 'r.drive'.");

  std::string rules;
  for (int i = 0; i < 2049; ++i) {
    if (i != 0) rules += ',';
    rules.append(R"({"id":"r)").append(std::to_string(i)).append(R"(","command_id":"a"})");
  }
  EXPECT_EQ(Parse(R"({"document_kind":"baseline","extension_rules":[)" + rules + "]}"),
            L"Too many extension rules.");
}

TEST(ModelDocumentRules, DefinitionsAndPoliciesAreUnique) {
  const std::string definition =
      R"({"command_id":"user:{00000000-0000-0000-0000-000000000001}","title":"T","executable":"x"})";
  EXPECT_EQ(Parse(R"({"document_kind":"overlay","command_definitions":[)" + definition + "," +
                  definition + "]}"),
            L"Duplicate custom command definition identity.");
  EXPECT_EQ(Parse(R"({"document_kind":"overlay","command_policies":[)"
                  R"({"command_id":"windows:open","hidden":true},)"
                  R"({"command_id":"windows:open","match":{"family":"drive"}},)"
                  R"({"command_id":"windows:open","match":{"family":"drive","extension":".x"}}]})"),
            L"");
  EXPECT_EQ(Parse(R"({"document_kind":"overlay","command_policies":[)"
                  R"({"command_id":"windows:open","match":{"family":"drive","extension":".X"}},)"
                  R"({"command_id":"windows:open","match":{"family":"drive","extension":".x"}}]})"),
            L"Duplicate command policy identity.");
}

TEST(ModelDocument, NormalisesLegacyIds) {
  // clang-format off
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"desktop-personalize-group", L"personalize"}, {L"desktop-personalize", L"personalize-settings"},
      {L"desktop-default", L"desktop-default"}, {L"recycle-bin-item", L"recycle-bin-item"},
      {L"desktop-view", L"view"}, {L"file-open", L"open"}, {L"rbi-restore", L"restore"},
      {L"fi-open", L"open"}, {L"fb-sort", L"sort"}, {L"dr-eject", L"eject"},
      {L"rb-empty", L"empty"}, {L"fb:view", L"fb:view"}, {L"view", L"view"}};
  // clang-format on
  for (const auto& [legacy, current] : cases) {
    EXPECT_EQ(NormaliseLegacyLayoutId(legacy), current) << legacy;
  }
}

}  // namespace
}  // namespace cmr
