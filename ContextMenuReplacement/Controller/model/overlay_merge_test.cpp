#include "model/overlay_merge.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

// One layout for drives (a submenu "m" holding "a") and one for folders that inherits it.
std::string Baseline(int version) {
  return R"({"document_kind":"baseline","baseline_version":"b","schema_version":)" +
         std::to_string(version) +
         R"(,"command_definitions":[{"command_id":"user:{00000000-0000-0000-0000-000000000001}",)"
         R"("title":"T","executable":"t.exe"}],"layouts":[{"id":"d","match":{"family":"drive"},)"
         R"("items":[{"type":"submenu","id":"m","items":[{"type":"separator","id":"a"}]},)"
         R"({"type":"separator","id":"s"}]},{"id":"f","inherits":"d","match":)"
         R"({"family":"folder-item"},"items":[]}]})";
}

// The first refusal of vetting, merging and parsing `sections` onto the baseline.
std::wstring Merge(int version, const std::string& sections) {
  rapidjson::Document merged, overlay;
  merged.Parse(Baseline(version).c_str());
  const std::string text =
      R"({"document_kind":"overlay","baseline_version":"b","schema_version":)" +
      std::to_string(version) + "," + sections + "}";
  EXPECT_FALSE(overlay.Parse(text.c_str()).HasParseError()) << text;
  DocumentHeader header;
  bool restamped = false;
  Status status = ReadDocumentHeader(merged, header);
  if (status) status = VetOverlay(header, overlay, restamped);
  if (status) status = MergeOverlay(merged, overlay);
  ModelDocument model;
  if (status) status = ParseModelDocument(merged, model);
  return status.message();
}

TEST(OverlayMerge, RefusesWithTheMessageOfEachRule) {
  const std::string user = R"("command_id":"user:{00000000-0000-0000-0000-000000000001}")";
  const std::tuple<int, std::string, const wchar_t*> cases[] = {
      {2, R"("insertions":[{"layout_id":"x","node":{"type":"separator","id":"n"}}])",
       L"insertion references unknown layout 'x'."},
      {2,
       R"("insertions":[{"layout_id":"d","parent_id":"s","node":{"type":"separator","id":"n"}}])",
       L"insertion parent_id 's' does not name a submenu in layout 'd'."},
      {2, R"("node_overrides":[{"layout_id":"x","node_id":"a"}])",
       L"node_override references unknown layout 'x'."},
      {2, R"("node_overrides":[{"layout_id":"d","node_id":"s","parent_id":"a"}])",
       L"node_override parent_id 'a' does not name a submenu in layout 'd'."},
      {2, R"("node_overrides":[{"layout_id":"d","node_id":"m","parent_id":"m"}])",
       L"node_override parent_id 'm' does not name a submenu in layout 'd'."},
      {2, R"("node_overrides":[{"layout_id":"d","node_id":"s","quick_pins":{}}])",
       L"Node 's' declares 'quick_pins' but is not a Quick pins command."},
      {2,
       R"("layouts":[{"id":"d","match":{"family":"desktop-background"},"items":[{"type":"separator","id":"z"}]}])",
       L"Duplicate layout id 'd'."},
      {3, R"("command_definitions":[{)" + user + R"(,"title":"T","executable":"other.exe"}])",
       L"Conflicting custom command definitions; use a new command identity."},
      {3,
       R"("command_definitions":[{)" + user + R"(,"title":"T","executable":"t.exe"},{)" + user +
           R"(,"title":"T","executable":"t.exe"}])",
       L"Duplicate overlay custom command definition identity."},
      {3, R"("command_policies":[{"command_id":"windows:open"},{"command_id":"windows:open"}])",
       L"Duplicate overlay command policy identity."},
      {3, R"("layouts":[{"id":"x","items":[]}])", L"Placement overlay names an unknown layout."},
      {3,
       R"("layouts":[{"id":"d","match":{"family":"drive"},"items":[{"type":"separator","id":"q"}]},)"
       R"({"id":"d","match":{"family":"drive"},"items":[{"type":"separator","id":"q"}]}])",
       L"Placement overlay repeats a layout replacement."},
      {3, R"("layout_edits":[{"id":"x","edits":[]}])", L"Placement edits name an unknown layout."},
      {3, R"("layout_edits":[{"id":"d","edits":[]},{"id":"d","edits":[]}])",
       L"Placement overlay repeats a layout edit list."},
      {3,
       R"("layout_edits":[{"id":"d","edits":[{"action":"insert","node":{"type":"separator",)"
       R"("id":"n"},"position":"end","anchor_id":"s"}]}])",
       L"Invalid placement edit in layout 'd': missing or conflicting placement, parent, or "
       L"sibling anchor."},
  };
  for (const auto& [version, sections, message] : cases) {
    EXPECT_EQ(Merge(version, sections), message) << sections;
  }
}

}  // namespace
}  // namespace cmr
